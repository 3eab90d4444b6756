#include "vidloom/platform/ffmpeg/MovieAudioTrack.h"

#include <algorithm>
#include <cerrno>

namespace vidloom {

namespace {

/// Two times that are rounded to samples may lie one apart although the sound goes on without a break.
constexpr int64_t roundingFrames = 1;

}  // namespace

MovieAudioTrack::MovieAudioTrack(const MovieWriter::AudioSettings& settings, const std::filesystem::path& destination,
                                 std::function<bool()> isCancelled)
    : settings_(settings),
      destination_(destination),
      errors_(destination),
      isCancelled_(std::move(isCancelled)),
      spool_(destination.parent_path(), PacketSpool::defaultMemoryBytes / 4),
      sink_([this](const EncodedPacket& packet) { return keep(packet); }) {}

int64_t MovieAudioTrack::frameAt(const CMTime& time) const {
  return CMTimeConvertScale(time, static_cast<CMTimeScale>(settings_.sampleRate)).value;
}

CMTime MovieAudioTrack::timeOf(int64_t frame) const { return CMTimeMake(frame, static_cast<CMTimeScale>(settings_.sampleRate)); }

std::optional<NSError> MovieAudioTrack::openEncoder() {
  int avError = 0;
  encoder_ = AacEncoder::open(settings_, destination_.filename().string(), avError);
  if (!encoder_) return errors_.encoderMissing("sound", avError);
  sampleEntry_ = encoder_->sampleEntry();
  delayFrames_ = encoder_->delayFrames();
  return std::nullopt;
}

std::optional<NSError> MovieAudioTrack::append(const float* interleaved, int frameCount, const CMTime& time) {
  if (isCancelled_()) return errors_.cancelled();
  if (ended_) return errors_.ended("sound");
  if (!CMTIME_IS_NUMERIC(time) || interleaved == nullptr) return errors_.badTime("sound", time, "the sample is not usable");
  const int64_t start = frameAt(time);
  if (!encoder_) {
    if (auto problem = openEncoder()) return problem;
    firstFrame_ = std::max<int64_t>(start, 0);
  }
  const int64_t gap = start - (firstFrame_ + encodedFrames_);
  if (gap > roundingFrames) {
    if (auto problem = encodeSilence(gap)) return problem;
  }
  const int64_t skipped = gap < -roundingFrames ? std::min<int64_t>(-gap, frameCount) : 0;
  return encode(interleaved + skipped * settings_.channels, static_cast<int>(frameCount - skipped));
}

std::optional<NSError> MovieAudioTrack::encodeSilence(int64_t frameCount) {
  constexpr int64_t stepFrames = int64_t{64} * AacEncoder::packetFrames;
  while (frameCount > 0) {
    const int count = static_cast<int>(std::min(frameCount, stepFrames));
    if (auto problem = encode(nullptr, count)) return problem;
    frameCount -= count;
  }
  return std::nullopt;
}

std::optional<NSError> MovieAudioTrack::encode(const float* interleaved, int frameCount) {
  const PacketEncoder::Result result = encoder_->encode(interleaved, frameCount, sink_);
  if (!result) return errors_.encoding("sound", timeOf(firstFrame_ + encodedFrames_), result);
  encodedFrames_ += frameCount;
  return std::nullopt;
}

int MovieAudioTrack::keep(const EncodedPacket& packet) {
  if (isCancelled_()) return ECANCELED;
  packetBytes_.push_back(static_cast<uint32_t>(packet.bytes.size()));
  return spool_.append(packet.bytes);
}

std::optional<NSError> MovieAudioTrack::end() {
  if (ended_) return std::nullopt;
  if (isCancelled_()) return errors_.cancelled();
  ended_ = true;
  if (!encoder_) return std::nullopt;
  const PacketEncoder::Result result = encoder_->flush(sink_);
  encoder_.reset();
  if (!result) return errors_.encoding("sound", timeOf(firstFrame_ + encodedFrames_), result);
  return std::nullopt;
}

MovieTrack MovieAudioTrack::finish() {
  constexpr int64_t packetFrames = AacEncoder::packetFrames;
  MovieTrack track;
  track.kind = MovieTrack::Kind::sound;
  track.timescale = static_cast<int64_t>(settings_.sampleRate);
  track.sampleEntry = sampleEntry_;
  track.spool = &spool_;
  track.delayTicks = firstFrame_;
  track.mediaStartTicks = delayFrames_;
  // The decoder needs one packet before it gives whole sound.
  track.rollDistance = 1;
  int64_t remaining = delayFrames_ + encodedFrames_;
  for (const uint32_t sizeBytes : packetBytes_) {
    if (remaining <= 0) break;
    const int64_t frames = std::min(remaining, packetFrames);
    track.samples.push_back({sizeBytes, static_cast<uint32_t>(frames), 0, true});
    remaining -= frames;
  }
  track.presentedTicks = encodedFrames_ - std::max<int64_t>(remaining, 0);
  return track;
}

}  // namespace vidloom
