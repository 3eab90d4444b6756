#include "vidloom/platform/ffmpeg/FileVideoDecoder.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vidloom/platform/coremedia/CMTimeRational.h"
#include "vidloom/platform/ffmpeg/InputError.h"

namespace vidloom {

namespace {

constexpr int kFramesWorthASeek = 4;
constexpr int kFramesWorthABlindSeek = 150;  // where the key frames are not known

}  // namespace

FileVideoDecoder::FileVideoDecoder(std::unique_ptr<FrameDecoder> decoder)
    : decoder_(std::move(decoder)),
      track_(decoder_->packets().track()),
      source_(decoder_->packets().source()),
      deinterlacer_(*decoder_),
      maker_(track_, source_) {
  if (track_.nominalFrameRate <= 0) return;
  const double ticks = source_.denominator / (track_.nominalFrameRate * source_.numerator);
  frameTicks_ = std::max<int64_t>(1, std::llround(std::min(ticks, 1e12)));
}

std::optional<VideoFrame> FileVideoDecoder::frameAt(const CMTime& mediaTime, std::optional<NSError>* error) {
  int64_t target = floorTicks(mediaTime);
  if (earliestPts_) target = std::max(target, *earliestPts_);
  bool going = !decoder_->packets().isCancelled();
  if (going && !isShownAt(target)) going = isNearer(target) ? decodeTo(target) : findFrom(target);
  if (going) return give(error);
  setInputError(error, inputError(AVErrorOperationCancelled, decoder_->packets().file().path(), "is no longer read: cancelled"));
  return std::nullopt;
}

CMTime FileVideoDecoder::nextFrameTime() const {
  if (ahead_) return timeOf(ahead_->pts);
  return atEnd_ ? kCMTimePositiveInfinity : kCMTimeInvalid;
}

int64_t FileVideoDecoder::floorTicks(const CMTime& time) const {
  const detail::Int128 numerator = detail::Int128{time.value} * source_.denominator;
  const detail::Int128 denominator = detail::Int128{std::max(1, time.timescale)} * source_.numerator;
  const auto ticks = detail::divideRounded(numerator, denominator, CMTimeRoundingMethod::kRoundTowardNegativeInfinity).value;
  constexpr detail::Int128 largest = int64_t{1} << 62;
  return static_cast<int64_t>(std::clamp(ticks, -largest, largest));
}

CMTime FileVideoDecoder::timeOf(int64_t ticks) const { return CMTimeMake(ticks * source_.numerator, source_.denominator); }

bool FileVideoDecoder::isShownAt(int64_t target) const {
  if (!shown_ || shown_->decoded.pts > target) return false;
  return ahead_ ? ahead_->pts > target : atEnd_;
}

const KeyFrame* FileVideoDecoder::keyFrameAt(int64_t target) const {
  const auto later = std::upper_bound(source_.keyFrames.begin(), source_.keyFrames.end(), target,
                                      [](int64_t ticks, const KeyFrame& key) { return ticks < key.pts; });
  return later == source_.keyFrames.begin() ? nullptr : &*(later - 1);
}

/// Whether going on from here is cheaper than beginning at the last key frame before the target.
bool FileVideoDecoder::isNearer(int64_t target) const {
  if (!shown_ || shown_->decoded.pts > target || !decoder_->latestSentPts()) return false;
  if (source_.keyFrames.empty()) return target - shown_->decoded.pts < kFramesWorthABlindSeek * frameTicks_;
  const KeyFrame* key = keyFrameAt(target);
  return !key || key->pts - *decoder_->latestSentPts() <= kFramesWorthASeek * frameTicks_;
}

void FileVideoDecoder::begin(bool atBeginning) {
  shown_.reset();
  ahead_.reset();
  damaged_.reset();
  atEnd_ = false;
  framesInRun_ = 0;
  deinterlacer_.reset();
  fromBeginning_ = atBeginning;
  if (hasDecoded_) ++seekCount_;
  hasDecoded_ = true;
}

bool FileVideoDecoder::findFrom(int64_t target) {
  if (source_.keyFrames.empty()) return findBefore(target);
  const KeyFrame* key = keyFrameAt(target);
  // From the first key frame on there is nothing to gain by jumping: what lies before it may show something, too.
  for (ptrdiff_t index = key ? key - source_.keyFrames.data() : 0, step = 1; index > 0; index -= step, step *= 2) {
    begin(false);
    if (!decoder_->restartAt(source_.keyFrames[static_cast<size_t>(index)])) fromBeginning_ = true;
    if (!decodeTo(target)) return false;
    if (isReliable(target)) return true;
  }
  begin(true);
  decoder_->restartAtBeginning();
  return decodeTo(target);
}

bool FileVideoDecoder::findBefore(int64_t target) {
  int64_t step = kFramesWorthABlindSeek * frameTicks_;
  for (int64_t from = target; from > source_.firstTicks + step; from -= step, step *= 2) {
    begin(false);
    if (!decoder_->restartBefore(from)) fromBeginning_ = true;
    if (!decodeTo(target)) return false;
    if (isReliable(target)) return true;
  }
  begin(true);
  decoder_->restartAtBeginning();
  return decodeTo(target);
}

/// Whether the run of decoding that just began shows at the target what decoding from the beginning would.
bool FileVideoDecoder::isReliable(int64_t target) const {
  if (fromBeginning_) return true;
  const bool lacksPrevious = deinterlacer_.isActive() && framesInRun_ < 2;
  return shown_ && shown_->decoded.pts <= target && !lacksPrevious;
}

/// False only when cancelled. Leaves the picture at the target shown, or the first one that there is where all are later.
bool FileVideoDecoder::decodeTo(int64_t target) {
  while (true) {
    if (!ahead_ && !atEnd_ && !fetch()) return false;
    if (!ahead_ || (shown_ && ahead_->pts > target)) break;
    if (!shown_ && fromBeginning_) earliestPts_ = ahead_->pts;
    shown_ = Held{std::move(*ahead_), nullptr};
    ahead_.reset();
    ++framesInRun_;
  }
  if (!shown_ && fromBeginning_ && damaged_) {
    shown_ = Held{std::move(*damaged_), nullptr};
    damaged_.reset();
  }
  return true;
}

/// Decodes the next good picture into ahead_, or sets atEnd_. False when cancelled.
bool FileVideoDecoder::fetch() {
  DecodedFrame frame;
  while (true) {
    const FrameDecoder::Status status = deinterlacer_.next(frame);
    if (status == FrameDecoder::Status::cancelled) return false;
    if (status == FrameDecoder::Status::end) {
      atEnd_ = true;
      return true;
    }
    if (!isWanted(frame)) continue;
    if (!frame.isDamaged) break;
    if (!damaged_) damaged_ = std::move(frame);
  }
  ahead_ = std::move(frame);
  return true;
}

/// Pictures that are shown before the key frame at which decoding began may lean on what was not decoded.
bool FileVideoDecoder::isWanted(const DecodedFrame& frame) const {
  return !decoder_->isLeading(frame) && !frame.isUnrecovered && (!shown_ || frame.pts > shown_->decoded.pts);
}

std::optional<VideoFrame> FileVideoDecoder::give(std::optional<NSError>* error) {
  int avError = 0;
  if (shown_ && !shown_->picture) shown_->picture = maker_.make(std::move(shown_->decoded.frame), avError);
  if (shown_ && shown_->picture) return VideoFrame{shown_->picture, timeOf(shown_->decoded.pts)};
  const auto& path = decoder_->packets().file().path();
  if (avError != 0) {
    setInputError(error, inputErrorFor(path, "has a picture that cannot be converted", avError));
  } else {
    setInputError(error, inputError(AVErrorDecodeFailed, path, "has not a single picture that can be decoded"));
  }
  return std::nullopt;
}

}  // namespace vidloom
