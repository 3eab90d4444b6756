#include "vidloom/platform/ffmpeg/MovieVideoTrack.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace vidloom {

namespace {

constexpr CMTime usualFrameDuration{1, 30, kCMTimeFlags_Valid, 0};

bool isPositive(const CMTime& time) { return CMTIME_IS_NUMERIC(time) && time.value > 0; }

/// Readers take longer ones for damage: steps for negative ones, and offsets they then leave out altogether.
constexpr int64_t maximumStepTicks = std::numeric_limits<int32_t>::max();
constexpr int64_t maximumOffsetTicks = (1 << 28) - 1;

/// A duration that can stand for a frame rate; what is not between 1 and 1000 pictures a second is no rate.
CMTime rateDuration(const CMTime& duration) {
  const bool isRate = isPositive(duration) && duration.value <= duration.timescale && duration.value >= duration.timescale / 1000;
  return isRate ? duration : usualFrameDuration;
}

bool isSmallEnough(uint64_t byteCount) { return byteCount <= std::numeric_limits<uint32_t>::max(); }

}  // namespace

MovieVideoTrack::MovieVideoTrack(const MovieWriter::VideoSettings& settings, const std::filesystem::path& destination,
                                 std::function<bool()> isCancelled)
    : settings_(settings),
      destination_(destination),
      errors_(destination),
      isCancelled_(std::move(isCancelled)),
      spool_(destination.parent_path()),
      sink_([this](const EncodedPacket& packet) { return keep(packet); }) {}

std::optional<NSError> MovieVideoTrack::problemWith(const PictureRef& picture, const CMTime& time) const {
  if (isCancelled_()) return errors_.cancelled();
  if (ended_) return errors_.ended("video");
  if (!picture) return errors_.badTime("a picture", time, "there is none");
  if (!CMTIME_IS_NUMERIC(time) || time.value < 0) return errors_.badTime("a picture", time, "the time is not usable");
  if (CMTIME_IS_VALID(lastTime_) && CMTimeCompare(time, lastTime_) <= 0) {
    return errors_.badTime("a picture", time, "times must increase");
  }
  return std::nullopt;
}

std::optional<NSError> MovieVideoTrack::openEncoder(const PictureColor& color, const CMTime& duration) {
  color_ = color;
  color_.fullRange = false;
  const CMTime frame = rateDuration(duration);
  int avError = 0;
  encoder_ = H264Encoder::open({settings_.width, settings_.height, frame.timescale, frame.value, color_, settings_.encoder,
                                destination_.filename().string()},
                               avError);
  if (!encoder_) return errors_.encoderMissing("video", avError);
  sampleEntry_ = encoder_->sampleEntry();
  return std::nullopt;
}

PictureRef MovieVideoTrack::prepared(const PictureRef& picture) {
  const bool fits = picture->width == settings_.width && picture->height == settings_.height;
  if (fits && !picture->color.fullRange && !picture->hasAlpha() && picture->color.matrix == color_.matrix) return picture;
  const double scaleX = static_cast<double>(settings_.width) / picture->width;
  const double scaleY = static_cast<double>(settings_.height) / picture->height;
  const PictureLayer layer{
      picture, {static_cast<double>(picture->width), static_cast<double>(picture->height)}, {scaleX, 0, 0, scaleY, 0, 0}, 1};
  return scaler_.compose({layer}, settings_.width, settings_.height, color_);
}

std::optional<NSError> MovieVideoTrack::append(const PictureRef& picture, const CMTime& time, const CMTime& duration) {
  if (auto problem = problemWith(picture, time)) return problem;
  if (!encoder_) {
    if (auto problem = openEncoder(picture->color, duration)) return problem;
  }
  if (CMTIME_IS_VALID(lastTime_)) lastStep_ = CMTimeSubtract(time, lastTime_);
  lastTime_ = time;
  lastDuration_ = duration;
  times_.append(time);
  const PictureRef ready = prepared(picture);
  if (!ready) return errors_.system("convert a picture for", ENOMEM);
  const PacketEncoder::Result result = encoder_->encode(ready, sink_);
  return result ? std::nullopt : std::optional(errors_.encoding("video", time, result));
}

int MovieVideoTrack::keep(const EncodedPacket& packet) {
  if (isCancelled_()) return ECANCELED;
  if (!isSmallEnough(packet.bytes.size())) return EFBIG;
  packets_.push_back({static_cast<uint32_t>(packet.bytes.size()), static_cast<int32_t>(packet.presentationTicks),
                      static_cast<int32_t>(packet.decodeTicks), packet.sync});
  return spool_.append(packet.bytes);
}

CMTime MovieVideoTrack::endOfLast() const {
  if (isPositive(lastDuration_)) return CMTimeAdd(lastTime_, lastDuration_);
  return CMTimeAdd(lastTime_, isPositive(lastStep_) ? lastStep_ : usualFrameDuration);
}

std::optional<NSError> MovieVideoTrack::end() {
  if (ended_) return std::nullopt;
  if (isCancelled_()) return errors_.cancelled();
  ended_ = true;
  if (!encoder_) return std::nullopt;
  times_.setEnd(endOfLast());
  const PacketEncoder::Result result = encoder_->flush(sink_);
  encoder_.reset();
  return result ? std::nullopt : std::optional(errors_.encoding("video", lastTime_, result));
}

int64_t MovieVideoTrack::decodeTicks(int32_t decodeIndex) const {
  if (decodeIndex >= 0) return times_[static_cast<size_t>(decodeIndex)];
  const int64_t firstStep = (times_.count() > 1 ? times_[1] : times_.end()) - times_[0];
  return times_[0] + decodeIndex * firstStep;
}

std::vector<MovieVideoTrack::Step> MovieVideoTrack::steps() const {
  std::vector<Step> result;
  result.reserve(packets_.size());
  const int64_t mediaZero = decodeTicks(packets_.front().decodeIndex);
  const int64_t presented = times_.end() - times_[0];
  for (size_t i = 0; i < packets_.size(); ++i) {
    const int64_t decoded = decodeTicks(packets_[i].decodeIndex);
    const int64_t lastStep = std::max(times_.end() - times_[times_.count() - 1], presented - (decoded - mediaZero));
    const int64_t step = i + 1 < packets_.size() ? decodeTicks(packets_[i + 1].decodeIndex) - decoded : lastStep;
    result.push_back({step, times_[static_cast<size_t>(packets_[i].presentationIndex)] - decoded});
  }
  return result;
}

std::vector<MovieVideoTrack::Step> MovieVideoTrack::fittingSteps() {
  // Fine enough that players which round to it see no jitter.
  constexpr int64_t minimumScale = 10'000;
  times_.refineTo(minimumScale);
  std::vector<Step> result = steps();
  int64_t longest = 0;
  for (const Step& step : result) {
    longest = std::max({longest, step.durationTicks, step.presentationOffset * (maximumStepTicks / maximumOffsetTicks)});
  }
  if (longest <= maximumStepTicks) return result;
  // Rounded times may lie further apart.
  times_.coarsen(longest, maximumStepTicks / 2);
  return steps();
}

MovieTrack MovieVideoTrack::finish() {
  const std::vector<Step> fitting = fittingSteps();
  MovieTrack track;
  track.kind = MovieTrack::Kind::video;
  track.timescale = times_.scale();
  track.width = settings_.width;
  track.height = settings_.height;
  track.sampleEntry = sampleEntry_;
  track.spool = &spool_;
  track.delayTicks = times_[0];
  track.presentedTicks = times_.end() - times_[0];
  track.mediaStartTicks = times_[0] - decodeTicks(packets_.front().decodeIndex);
  track.samples.reserve(packets_.size());
  for (size_t i = 0; i < packets_.size(); ++i) {
    track.samples.push_back({packets_[i].sizeBytes, static_cast<uint32_t>(fitting[i].durationTicks),
                             static_cast<int32_t>(fitting[i].presentationOffset), packets_[i].sync});
  }
  return track;
}

}  // namespace vidloom
