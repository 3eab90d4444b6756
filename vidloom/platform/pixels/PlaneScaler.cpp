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
  const uint8_t* rows[ScaleFilter::kMaximumTaps];
  for (int tap = 0; tap < plan_->down.taps(); ++tap) {
    rows[tap] = scaledRow(std::min(plan_->down.start(index) + tap, source_.height - 1));
  }
  mixRows(destination, rows, plan_->down.weights(index).data(), plan_->down.taps(), plan_->destination.width());
}

void PlaneScaler::scaleAcross(const uint8_t* source, uint8_t* destination) {
  if (!narrow_.empty()) {
    std::memcpy(narrow_.data(), source, static_cast<size_t>(source_.width));
    source = narrow_.data();
  }
  scaleRow(destination, source, *plan_->horizontal);
}

/// The source rows that a destination row is made of, and their weights.
int PlaneScaler::sourceRows(int index, const uint8_t** rows, uint16_t* weights) const {
  int count = 0;
  for (int tap = 0; tap < plan_->down.taps(); ++tap) {
    const uint16_t weight = plan_->down.weights(index)[tap];
    if (weight == 0) continue;
    weights[count] = weight;
    rows[count++] = source_.row(std::min(plan_->down.start(index) + tap, source_.height - 1));
  }
  return count;
}

void PlaneScaler::mixInto(int index, uint8_t* destination) {
  const uint8_t* rows[ScaleFilter::kMaximumTaps];
  uint16_t weights[ScaleFilter::kMaximumTaps];
  const int count = sourceRows(index, rows, weights);
  for (int row = 0; row < count; ++row) rows[row] += plan_->across.start(0);
  mixRows(destination, rows, weights, count, plan_->destination.width());
}

const uint8_t* PlaneScaler::mixedRow(int index) {
  const uint8_t* rows[ScaleFilter::kMaximumTaps];
  uint16_t weights[ScaleFilter::kMaximumTaps];
  const int count = sourceRows(index, rows, weights);
  if (count == 1) return rows[0];
  // Windows at the end of the row begin further left than the first sample that they are for.
  const int begin = std::max(0, std::min(plan_->across.sourceBegin(), source_.width - HorizontalFilter::kWindow));
  const int end = std::min(plan_->across.sourceEnd() + HorizontalFilter::kWindow, source_.width);
  for (int row = 0; row < count; ++row) rows[row] += begin;
  mixRows(mixed_.data() + begin, rows, weights, count, end - begin);
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
