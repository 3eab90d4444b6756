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
      solid_(coverage ? coverage->solid(bounds) : bounds),
      beneath_(plane.view()) {}

void PlaneSink::setAlpha(const PlaneView& alpha, int x0, int y0) {
  alpha_ = alpha;
  alphaX_ = x0;
  alphaY_ = y0;
}

SampleSpan PlaneSink::filledPart(int y, int begin, int end) const {
  if (!isUpright_) return coverage_->filled(y, {begin, end});
  if (y < solid_.y0 || y >= solid_.y1) return {};
  return {std::max(begin, solid_.x0), std::min(end, solid_.x1)};
}

// Rows that only blend at their edges are written in place, and what was beneath the edges is kept.
void PlaneSink::open(Row& row, int y, int begin, int end) const {
  row.y = y;
  row.begin = begin;
  row.end = end;
  row.filled = filledPart(y, begin, end);
  if (row.filled.isEmpty()) row.filled = {end, end};
  row.inPlace = opacity_ == kOpaque && !alpha_.data && !row.filled.isEmpty();
  row.kept.resize(std::max(row.kept.size(), static_cast<size_t>(end - begin)));
  row.samples = row.kept.data();
  if (!row.inPlace) return;
  row.samples = plane_.row(y) + begin;
  const uint8_t* under = beneath_.row(y);
  std::copy(under + begin, under + row.filled.begin, row.kept.data());
  std::copy(under + row.filled.end, under + end, row.kept.data() + (row.filled.end - begin));
}

void PlaneSink::close(Row& row) {
  const auto finishEdge = [&](int begin, int end) {
    if (begin >= end) return;
    const uint8_t* under = row.inPlace ? row.kept.data() + (begin - row.begin) : beneath_.row(row.y) + begin;
    blendEdge(row.y, begin, end, under, row.samples + (begin - row.begin));
  };
  finishEdge(row.begin, row.filled.begin);
  if (!row.inPlace) blend(row.y, row.filled.begin, row.filled.end, row.samples + (row.filled.begin - row.begin));
  finishEdge(row.filled.end, row.end);
}

void PlaneSink::blend(int y, int begin, int end, const uint8_t* samples) {
  if (begin >= end) return;
  uint8_t* target = plane_.row(y) + begin;
  const uint8_t* under = beneath_.row(y) + begin;
  if (alpha_.data) {
    blendRowPremultiplied(target, under, samples, alpha_.row(y - alphaY_) + (begin - alphaX_), end - begin, opacity_);
  } else {
    blendRow(target, under, samples, end - begin, opacity_);
  }
}

void PlaneSink::blendEdge(int y, int begin, int end, const uint8_t* under, const uint8_t* samples) {
  weights_.resize(std::max(weights_.size(), static_cast<size_t>(end - begin)));
  for (int x = begin; x < end; ++x) weights_[x - begin] = static_cast<uint16_t>((coverage_->at(x, y) * opacity_ + 128) >> 8);
  uint8_t* target = plane_.row(y) + begin;
  if (alpha_.data) {
    const uint8_t* alpha = alpha_.row(y - alphaY_) + (begin - alphaX_);
    blendRowPremultipliedWeighted(target, under, samples, alpha, weights_.data(), end - begin);
  } else {
    blendRowWeighted(target, under, samples, weights_.data(), end - begin);
  }
}

MutablePlaneView PlaneSink::direct() const {
  return opacity_ == kOpaque && !alpha_.data && solid_ == bounds_ ? plane_ : MutablePlaneView{};
}

}  // namespace vidloom
