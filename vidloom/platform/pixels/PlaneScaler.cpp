#include "vidloom/platform/pixels/PlaneScaler.h"

#include <algorithm>
#include <cstring>

#include "vidloom/platform/pixels/ScaleKernels.h"

namespace vidloom {

PlaneScaler::PlaneScaler(const PlaneView& source, const AxisMap& map, const SampleRect& destination)
    : source_(source),
      destination_(destination),
      across_(map.scaleX, map.offsetX, source.width, destination.x0, destination.width()),
      down_(map.scaleY, map.offsetY, source.height, destination.y0, destination.height()),
      acrossFirst_(map.scaleY > 1) {
  if (!across_.isCopy()) horizontal_.emplace(across_);
  const size_t sourceWidth = static_cast<size_t>(std::max(source.width, HorizontalFilter::kWindow));
  narrow_.resize(HorizontalFilter::kWindow);
  if (!acrossFirst_) mixed_.resize(sourceWidth);
}

void PlaneScaler::row(int y, uint8_t* destination) {
  const int index = y - destination_.y0;
  if (!acrossFirst_ || !horizontal_) return scaleAcross(mixedRow(index), destination);
  const uint8_t* rows[ScaleFilter::kMaximumTaps];
  for (int tap = 0; tap < down_.taps(); ++tap) {
    rows[tap] = scaledRow(std::min(down_.start(index) + tap, source_.height - 1));
  }
  mixRows(destination, rows, down_.weights(index).data(), down_.taps(), destination_.width());
}

void PlaneScaler::scaleAcross(const uint8_t* source, uint8_t* destination) {
  if (!horizontal_) {
    std::memcpy(destination, source + across_.start(0), static_cast<size_t>(destination_.width()));
    return;
  }
  if (source_.width < HorizontalFilter::kWindow) {
    std::memcpy(narrow_.data(), source, static_cast<size_t>(source_.width));
    source = narrow_.data();
  }
  scaleRow(destination, source, *horizontal_);
}

// The source row, or the mix of source rows, that a destination row is made of; only the columns that are needed.
const uint8_t* PlaneScaler::mixedRow(int index) {
  const ScaleFilter::Weights& weights = down_.weights(index);
  const uint8_t* rows[ScaleFilter::kMaximumTaps];
  uint16_t used[ScaleFilter::kMaximumTaps];
  int taps = 0;
  for (int tap = 0; tap < down_.taps(); ++tap) {
    if (weights[tap] == 0) continue;
    used[taps] = weights[tap];
    rows[taps++] = source_.row(std::min(down_.start(index) + tap, source_.height - 1));
  }
  if (taps == 1) return rows[0];
  mixed_.resize(static_cast<size_t>(std::max(source_.width, HorizontalFilter::kWindow)));
  const int begin = horizontal_ ? std::min(across_.sourceBegin(), std::max(0, source_.width - HorizontalFilter::kWindow)) : 0;
  const int end = horizontal_ ? std::min(across_.sourceEnd() + HorizontalFilter::kWindow, source_.width) : source_.width;
  for (int tap = 0; tap < taps; ++tap) rows[tap] += begin;
  mixRows(mixed_.data() + begin, rows, used, taps, end - begin);
  return mixed_.data();
}

const uint8_t* PlaneScaler::scaledRow(int sourceRow) {
  const int slot = sourceRow % kKeptRows;
  if (keptRow_[slot] != sourceRow) {
    kept_[slot].resize(static_cast<size_t>(destination_.width()));
    scaleAcross(source_.row(sourceRow), kept_[slot].data());
    keptRow_[slot] = sourceRow;
  }
  return kept_[slot].data();
}

}  // namespace vidloom
