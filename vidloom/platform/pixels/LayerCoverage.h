// How much of each sample a transformed rectangle covers.
#pragma once

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/PlaneScaler.h"

namespace vidloom {

/// Samples begin <= x < end of a row.
struct SampleSpan {
  int begin = 0, end = 0;

  bool isEmpty() const { return begin >= end; }
};

/// The coverage of the samples of a plane by a rectangle (0, 0, width, height) under an invertible affine map: exact for upright
/// rectangles, within a few percent for others. Less than 1/512 is none, more than 511/512 is all.
class LayerCoverage {
 public:
  LayerCoverage(const CGSize& size, const CGAffineTransform& map);

  /// 0..256 for the sample at column x of row y.
  int at(int x, int y) const;
  /// The samples of a row that are covered at all, and those that are covered entirely.
  SampleSpan touched(int y, const SampleSpan& within) const;
  SampleSpan filled(int y, const SampleSpan& within) const;
  bool fills(const SampleRect& rect) const;
  /// The smallest rectangle within `within` that holds every covered sample.
  SampleRect bounds(const SampleRect& within) const;

 private:
  // The distance of the point (x, y) from an edge in samples, positive inside: perX * x + perY * y + constant.
  struct Edge {
    double perX, perY, constant;
  };

  static double covered(const Edge& from, const Edge& to, double x, double y);
  SampleSpan spanAtDistance(double distance, int y, const SampleSpan& within) const;

  Edge edges_[4];
  CGRect bounds_;
};

}  // namespace vidloom
