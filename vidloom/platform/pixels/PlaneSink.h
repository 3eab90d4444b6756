// Takes the rows of a layer and lays them over a plane.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/pixels/LayerCoverage.h"
#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom {

/// Rows are written between beginRow and endRow, wherever they are cheapest: where nothing has to be blended, that is the plane.
class PlaneSink {
 public:
  /// `opacity` is 1..256. With a null coverage the layer covers all that is written, which is part of `bounds`.
  PlaneSink(const MutablePlaneView& plane, const LayerCoverage* coverage, const SampleRect& bounds, int opacity);

  /// Rows are premultiplied, and `alpha` holds their alpha; its sample (0, 0) belongs to the plane's sample (x0, y0).
  void setAlpha(const PlaneView& alpha, int x0, int y0);

  /// Where to write the plane's samples x0..x1 - 1 of row y. They lie within the plane.
  uint8_t* beginRow(int y, int x0, int x1);
  void endRow();

  /// The plane itself, if all of the bounds may be written without a look at what is beneath; else a view without data.
  MutablePlaneView direct() const;

 private:
  SampleSpan filledPart(int y, int x0, int x1) const;
  void blend(int begin, int end, const uint8_t* samples);
  void blendEdge(int begin, int end, const uint8_t* samples);

  MutablePlaneView plane_;
  const LayerCoverage* coverage_;
  int opacity_;
  SampleRect bounds_;
  bool isUpright_;
  SampleRect solid_;
  PlaneView alpha_;
  int alphaX_ = 0, alphaY_ = 0;
  int y_ = 0, begin_ = 0, end_ = 0;
  SampleSpan filled_;
  bool inPlace_ = false;
  std::vector<uint8_t> row_;
  std::vector<uint16_t> weights_;
};

}  // namespace vidloom
