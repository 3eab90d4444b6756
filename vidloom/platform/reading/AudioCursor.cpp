#include "vidloom/platform/reading/AudioCursor.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/reading/ReadingErrors.h"

namespace vidloom {

namespace {

constexpr int64_t kMaximumPositions = 512;  // bounds the window of a fast source

}  // namespace

bool AudioCursor::hasSound(int64_t first, int count) {
  while (current_ < pieces_.size() && pieces_[current_].end <= first) ++current_;
  return current_ < pieces_.size() && pieces_[current_].first < first + count;
}

bool AudioCursor::render(int64_t first, int count, double compositionSeconds, float* interleavedStereo,
                         std::optional<NSError>* error) {
  std::fill_n(interleavedStereo, 2 * count, 0.0f);
  if (!hasSound(first, count)) return true;
  const int64_t end = first + count;
  for (size_t index = current_; index < pieces_.size() && pieces_[index].first < end; ++index) {
    const AudioPiece& piece = pieces_[index];
    std::optional<NSError> cause;
    AudioDecoder* decoder = pool_.acquire(number_, piece.file, piece.trackIndex, &cause);
    if (!decoder) {
      if (error) *error = readingError(piece.file->path(), compositionSeconds, cause);
      return false;
    }
    const int64_t from = std::max(first, piece.first), to = std::min(end, piece.end);
    if (!renderPiece(index, from, to, *decoder, interleavedStereo + 2 * (from - first))) return false;
  }
  return true;
}

bool AudioCursor::renderPiece(size_t index, int64_t first, int64_t end, AudioDecoder& decoder, float* out) {
  const AudioPiece& piece = pieces_[index];
  const AudioPiece* before = index > 0 && pieces_[index - 1].halfGlide > 0 ? &pieces_[index - 1] : nullptr;
  const AudioPiece* after = piece.halfGlide > 0 ? &pieces_[index + 1] : nullptr;
  const int64_t steadyFrom =
      before ? std::clamp(static_cast<int64_t>(std::ceil(before->border + before->halfGlide)), first, end) : first;
  const int64_t steadyTo =
      after ? std::clamp(static_cast<int64_t>(std::floor(piece.border - piece.halfGlide)), steadyFrom, end) : end;

  const double speedBefore = before ? std::max(piece.speed, before->speed) : piece.speed;
  const double speedAfter = after ? std::max(piece.speed, after->speed) : piece.speed;
  if (!renderGliding(index, first, steadyFrom, speedBefore, decoder, out)) return false;
  float* steadyOut = out + 2 * (steadyFrom - first);
  const bool isDone =
      piece.isCopy && steadyFrom < steadyTo
          ? decoder.read(piece.sourceFrame + steadyFrom - piece.first, static_cast<int>(steadyTo - steadyFrom), steadyOut)
          : renderGliding(index, steadyFrom, steadyTo, piece.speed, decoder, steadyOut);
  return isDone && renderGliding(index, steadyTo, end, speedAfter, decoder, out + 2 * (steadyTo - first));
}

bool AudioCursor::renderGliding(size_t index, int64_t first, int64_t end, double speed, AudioDecoder& decoder, float* out) {
  if (windowOwner_ != &decoder) window_.clear();
  windowOwner_ = &decoder;
  const int reach = resampler_.reach(speed);
  for (int64_t start = first; start < end; start += kMaximumPositions) {
    const int64_t count = std::min(kMaximumPositions, end - start);
    positions_.resize(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) positions_[static_cast<size_t>(i)] = sourcePosition(pieces_, index, start + i);
    const double windowFirst = std::floor(positions_.front()) - reach;
    const auto windowEnd = static_cast<int64_t>(std::floor(positions_.back())) + reach + 1;
    const int64_t origin = pieces_[index].sourceFrame;
    if (!window_.load(decoder, origin + static_cast<int64_t>(windowFirst), origin + windowEnd)) return false;
    for (double& position : positions_) position -= windowFirst;
    resampler_.read(window_.left(), window_.right(), positions_.data(), static_cast<int>(count), speed, out + 2 * (start - first));
  }
  return true;
}

}  // namespace vidloom
