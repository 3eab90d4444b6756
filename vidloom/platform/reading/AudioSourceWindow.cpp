#include "vidloom/platform/reading/AudioSourceWindow.h"

namespace vidloom {

bool AudioSourceWindow::load(AudioDecoder& decoder, int64_t first, int64_t end) {
  const int64_t loadedEnd = first_ + static_cast<int64_t>(left_.size());
  if (first < first_ || first > loadedEnd) clear();
  const auto dropped = left_.empty() ? 0 : static_cast<std::ptrdiff_t>(first - first_);
  left_.erase(left_.begin(), left_.begin() + dropped);
  right_.erase(right_.begin(), right_.begin() + dropped);
  first_ = first;
  const size_t held = left_.size(), wanted = static_cast<size_t>(end - first);
  if (held >= wanted) return true;
  const size_t missing = wanted - held;
  interleaved_.resize(2 * missing);
  if (!decoder.read(first + static_cast<int64_t>(held), static_cast<int>(missing), interleaved_.data())) return false;
  left_.resize(wanted);
  right_.resize(wanted);
  for (size_t i = 0; i < missing; ++i) {
    left_[held + i] = interleaved_[2 * i];
    right_[held + i] = interleaved_[2 * i + 1];
  }
  return true;
}

void AudioSourceWindow::clear() {
  left_.clear();
  right_.clear();
}

}  // namespace vidloom
