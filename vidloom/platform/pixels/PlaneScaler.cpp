#include "vidloom/platform/pixels/PlaneScaler.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "vidloom/platform/pixels/ScaleKernels.h"

namespace vidloom {

PlaneScaler::PlaneScaler(const PlaneView& source, std::shared_ptr<const ScalePlan> plan) : source_(source), plan_(std::move(plan)) {
  if (source.width < HorizontalFilter::kWindow) narrow_.resize(HorizontalFilter::kWindow);
  if (!plan_->acrossFirst) mixed_.resize(static_cast<size_t>(std::max(source.width, HorizontalFilter::kWindow)));
}

void PlaneScaler::row(int y, uint8_t* destination) {
  const int index = y - plan_->destination.y0;
  if (!plan_->horizontal) return mixInto(index, destination);
  if (!plan_->acrossFirst) return scaleAcross(mixedRow(index), destination);
  const RowMix mix = mixOf(index, &PlaneScaler::scaledRow);
  mixRows(destination, mix.rows, mix.weights, mix.count, plan_->destination.width());
}

void PlaneScaler::scaleAcross(const uint8_t* source, uint8_t* destination) {
  if (!narrow_.empty()) {
    std::memcpy(narrow_.data(), source, static_cast<size_t>(source_.width));
    source = narrow_.data();
  }
  scaleRow(destination, source, *plan_->horizontal);
}

PlaneScaler::RowMix PlaneScaler::mixOf(int index, const uint8_t* (PlaneScaler::*rowOf)(int)) {
  RowMix mix;
  for (int tap = 0; tap < plan_->down.taps(); ++tap) {
    const uint16_t weight = plan_->down.weights(index)[tap];
    if (weight == 0) continue;
    mix.weights[mix.count] = weight;
    mix.rows[mix.count++] = (this->*rowOf)(std::min(plan_->down.start(index) + tap, source_.height - 1));
  }
  return mix;
}

void PlaneScaler::mixInto(int index, uint8_t* destination) {
  RowMix mix = mixOf(index, &PlaneScaler::sourceRow);
  for (int row = 0; row < mix.count; ++row) mix.rows[row] += plan_->across.start(0);
  mixRows(destination, mix.rows, mix.weights, mix.count, plan_->destination.width());
}

const uint8_t* PlaneScaler::mixedRow(int index) {
  RowMix mix = mixOf(index, &PlaneScaler::sourceRow);
  if (mix.count == 1) return mix.rows[0];
  // Windows at the end of the row begin further left than the first sample that they are for.
  const int begin = std::max(0, std::min(plan_->across.sourceBegin(), source_.width - HorizontalFilter::kWindow));
  const int end = std::min(plan_->across.sourceEnd() + HorizontalFilter::kWindow, source_.width);
  for (int row = 0; row < mix.count; ++row) mix.rows[row] += begin;
  mixRows(mixed_.data() + begin, mix.rows, mix.weights, mix.count, end - begin);
  return mixed_.data();
}

const uint8_t* PlaneScaler::scaledRow(int sourceRow) {
  const int slot = sourceRow % kKeptRows;
  if (keptRow_[slot] != sourceRow) {
    kept_[slot].resize(static_cast<size_t>(plan_->destination.width()));
    scaleAcross(source_.row(sourceRow), kept_[slot].data());
    keptRow_[slot] = sourceRow;
  }
  return kept_[slot].data();
}

}  // namespace vidloom
