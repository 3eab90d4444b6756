// How much of each sample a transformed rectangle covers.
#pragma once

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// The coverage of the samples of a plane by a rectangle (0, 0, width, height) under an invertible affine map: exact for upright
/// rectangles, within a few percent for others. Less than 1/512 is none, more than 511/512 is all.
class LayerCoverage {
 public:
  LayerCoverage(const CGSize& size, const CGAffineTransform& map);

  /// Of that column and that row (-1: none) only the first half belongs to the plane, as of the last chroma samples of a picture
  /// with odd sides; their coverage is that of this half.
  void setHalfSamples(int column, int row);

  /// 0..256 for the sample at column x of row y.
  int at(int x, int y) const;
  /// The samples of a row that are covered at all, and those that are covered entirely.
  SampleSpan touched(int y, const SampleSpan& within) const;
  SampleSpan filled(int y, const SampleSpan& within) const;
  bool fills(const SampleRect& rect) const;
  /// A rectangle within `within` all of whose samples are covered entirely: the largest one for upright layers, else empty.
  SampleRect solid(const SampleRect& within) const;
  bool isUpright() const;
  /// The smallest rectangle within `within` that holds every covered sample.
  SampleRect bounds(const SampleRect& within) const;

 private:
  // The distance of the point (x, y) from an edge in samples, positive inside: perX * x + perY * y + constant.
  struct Edge {
    double perX, perY, constant;
  };

  double covered(const Edge& from, const Edge& to, int x, int y) const;
  double sharpness(const Edge& edge, int x, int y) const;
  double middleOfColumn(int x) const { return x == halfColumn_ ? x + 0.25 : x + 0.5; }
  double middleOfRow(int y) const { return y == halfRow_ ? y + 0.25 : y + 0.5; }
  SampleSpan spanAtDistance(double distance, int y, const SampleSpan& within) const;
  SampleSpan withHalfColumn(SampleSpan span, int y, const SampleSpan& within, int atLeast) const;

  Edge edges_[4];
  CGRect bounds_;
  int halfColumn_ = -1, halfRow_ = -1;
};

}  // namespace vidloom
