// Takes the rows of a layer and lays them over a plane.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/pixels/LayerCoverage.h"
#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// Rows are written between open and close, wherever they are cheapest: in the plane itself where little has to be blended.
class PlaneSink {
 public:
  /// Samples begin..end - 1 of row y, to be written to `samples`.
  struct Row {
    int y = 0;
    int begin = 0, end = 0;
    uint8_t* samples = nullptr;

   private:
    friend class PlaneSink;
    SampleSpan filled;
    bool inPlace = false;
    std::vector<uint8_t> kept;
  };

  /// `opacity` is 1..256. With a null coverage the layer covers all that is written, which is part of `bounds`.
  PlaneSink(const MutablePlaneView& plane, const LayerCoverage* coverage, const SampleRect& bounds, int opacity);

  /// Rows are premultiplied, and `alpha` holds their alpha; its sample (0, 0) belongs to the plane's sample (x0, y0).
  void setAlpha(const PlaneView& alpha, int x0, int y0);

  /// What lies beneath is that plane, of the same size, and not what the plane holds yet.
  void setBeneath(const PlaneView& beneath) { beneath_ = beneath; }

  /// Several rows may be open at a time. A Row is best used again and again, since it keeps its memory.
  void open(Row& row, int y, int begin, int end) const;
  void close(Row& row);

  /// The plane itself, if all of the bounds may be written without a look at what is beneath; else a view without data.
  MutablePlaneView direct() const;

 private:
  SampleSpan filledPart(int y, int begin, int end) const;
  void blend(int y, int begin, int end, const uint8_t* samples);
  void blendEdge(int y, int begin, int end, const uint8_t* under, const uint8_t* samples);

  MutablePlaneView plane_;
  const LayerCoverage* coverage_;
  int opacity_;
  SampleRect bounds_;
  bool isUpright_;
  SampleRect solid_;
  PlaneView beneath_;
  PlaneView alpha_;
  int alphaX_ = 0, alphaY_ = 0;
  std::vector<uint16_t> weights_;
};

}  // namespace vidloom
