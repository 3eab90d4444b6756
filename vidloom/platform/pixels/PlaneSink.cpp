#include "vidloom/platform/pixels/PlaneSink.h"

#include <algorithm>

#include "vidloom/platform/pixels/BlendKernels.h"

namespace vidloom {
namespace {
constexpr int kOpaque = 256;
}

PlaneSink::PlaneSink(const MutablePlaneView& plane, const LayerCoverage* coverage, const SampleRect& bounds, int opacity)
    : plane_(plane),
      coverage_(coverage),
      opacity_(opacity),
      bounds_(bounds),
      isUpright_(!coverage || coverage->isUpright()),
      solid_(coverage ? coverage->solid(bounds) : bounds) {}

void PlaneSink::setAlpha(const PlaneView& alpha, int x0, int y0) {
  alpha_ = alpha;
  alphaX_ = x0;
  alphaY_ = y0;
}

uint8_t* PlaneSink::beginRow(int y, int x0, int x1) {
  y_ = y;
  begin_ = x0;
  end_ = x1;
  filled_ = filledPart(y, x0, x1);
  if (filled_.isEmpty()) filled_ = {x1, x1};
  inPlace_ = opacity_ == kOpaque && !alpha_.data && filled_.begin == x0 && filled_.end == x1;
  if (inPlace_) return plane_.row(y) + x0;
  row_.resize(std::max(row_.size(), static_cast<size_t>(x1 - x0)));
  return row_.data();
}

SampleSpan PlaneSink::filledPart(int y, int x0, int x1) const {
  if (!isUpright_) return coverage_->filled(y, {x0, x1});
  if (y < solid_.y0 || y >= solid_.y1) return {};
  return {std::max(x0, solid_.x0), std::min(x1, solid_.x1)};
}

void PlaneSink::endRow() {
  if (inPlace_) return;
  blendEdge(begin_, filled_.begin, row_.data());
  blend(filled_.begin, filled_.end, row_.data() + (filled_.begin - begin_));
  blendEdge(filled_.end, end_, row_.data() + (filled_.end - begin_));
}

void PlaneSink::blend(int begin, int end, const uint8_t* samples) {
  if (begin >= end) return;
  uint8_t* target = plane_.row(y_) + begin;
  if (alpha_.data) {
    blendRowPremultiplied(target, samples, alpha_.row(y_ - alphaY_) + (begin - alphaX_), end - begin, opacity_);
  } else if (opacity_ == kOpaque) {
    std::copy(samples, samples + (end - begin), target);
  } else {
    blendRow(target, samples, end - begin, opacity_);
  }
}

void PlaneSink::blendEdge(int begin, int end, const uint8_t* samples) {
  if (begin >= end) return;
  weights_.resize(std::max(weights_.size(), static_cast<size_t>(end - begin)));
  for (int x = begin; x < end; ++x) weights_[x - begin] = static_cast<uint16_t>((coverage_->at(x, y_) * opacity_ + 128) >> 8);
  uint8_t* target = plane_.row(y_) + begin;
  if (alpha_.data) {
    blendRowPremultipliedWeighted(target, samples, alpha_.row(y_ - alphaY_) + (begin - alphaX_), weights_.data(), end - begin);
  } else {
    blendRowWeighted(target, samples, weights_.data(), end - begin);
  }
}

MutablePlaneView PlaneSink::direct() const {
  return opacity_ == kOpaque && !alpha_.data && solid_ == bounds_ ? plane_ : MutablePlaneView{};
}

}  // namespace vidloom
