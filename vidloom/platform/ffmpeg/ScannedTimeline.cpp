#include "vidloom/platform/ffmpeg/ScannedTimeline.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/ffmpeg/MovieTimeline.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

namespace vidloom {

namespace {

AVRational timeBaseOf(const TrackSource& source) { return {source.numerator, source.denominator}; }

int64_t toSamples(int64_t ticks, const ScannedTrack& item) {
  return av_rescale_q(ticks, timeBaseOf(*item.source), {1, static_cast<int>(item.track->sampleRate)});
}

/// The decoded sound of a track from its very first sample on: [anchor, end), of which `first` is the first one meant to be heard.
struct SoundExtent {
  int64_t first = 0, end = 0;
  bool isMoved = false;  ///< begins later than the first packet
};

int skippedFrames(const ScannedTrack& item) {
  const AVCodecParameters& codec = *item.source->parameters;
  if (item.scan->skipFrames > 0 || codec.codec_id != AV_CODEC_ID_OPUS || codec.extradata_size < 12) return item.scan->skipFrames;
  return AV_RL16(codec.extradata + 10);  // Opus says in its header how much the decoder gives too much
}

/// Whether all packets hold `frames` samples and follow each other, as far as the time stamps can tell.
bool isEven(const ScannedTrack& item, int64_t frames, int64_t oneTick) {
  const ScannedStream& scan = *item.scan;
  if (frames <= 0 || scan.headCount < 2) return false;
  return std::llabs(toSamples(scan.headTicks, item) - (scan.headCount - 1) * frames) <= 2 * oneTick;
}

bool alwaysFillsPackets(int codec) {
  return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_MP2 || codec == AV_CODEC_ID_AC3 ||
         codec == AV_CODEC_ID_EAC3 || codec == AV_CODEC_ID_OPUS;
}

/// Whether a tick of the time stamps is a sample, or a part of one that goes into it without a rest.
bool tellsSamples(const ScannedTrack& item) {
  return item.source->numerator == 1 && item.source->denominator % static_cast<int>(item.track->sampleRate) == 0;
}

/// Samples from the first packet's beginning to the last one's end.
int64_t soundLength(const ScannedTrack& item, int64_t oneTick) {
  const ScannedStream& scan = *item.scan;
  const AVCodecParameters& codec = *item.source->parameters;
  const int frameBits = av_get_exact_bits_per_sample(codec.codec_id) * codec.ch_layout.nb_channels;
  if (frameBits > 0 && oneTick > 1 && item.source->soundPacketFrames > 0 && !scan.hasJumped) return scan.bytes * 8 / frameBits;
  const int64_t stamped = toSamples(scan.times.endPts, item) - toSamples(scan.times.firstPts, item);
  if (scan.countedFrames > 0) return std::min(stamped, scan.countedFrames);
  if (scan.hasJumped || tellsSamples(item) || item.source->soundPacketFrames <= 0) return stamped;
  const int frames = item.source->soundPacketFrames;
  if (alwaysFillsPackets(codec.codec_id)) return scan.times.sampleCount * frames;
  const int64_t last = scan.lastFrames > 0 ? scan.lastFrames : toSamples(scan.lastDuration, item);
  return (scan.times.sampleCount - 1) * frames + last;
}

/// Uncompressed sound with exact time stamps can be jumped into anywhere: its packets keep to no grid.
int packetFramesOf(const ScannedTrack& item, int64_t oneTick) {
  const AVCodecParameters& codec = *item.source->parameters;
  const int frameBits = av_get_exact_bits_per_sample(codec.codec_id) * codec.ch_layout.nb_channels;
  if (frameBits > 0 && oneTick <= 1) return 0;
  return frameBits > 0 ? static_cast<int>(item.scan->firstBytes * 8 / frameBits) : item.source->soundPacketFrames;
}

SoundExtent placeSound(const ScannedTrack& item) {
  const ScannedStream& scan = *item.scan;
  TrackSource& source = *item.source;
  const auto rate = static_cast<int>(item.track->sampleRate);
  const int64_t oneTick = av_rescale_q_rnd(1, timeBaseOf(source), {1, rate}, AV_ROUND_UP);
  const int skip = skippedFrames(item);
  source.soundPacketFrames = packetFramesOf(item, oneTick);
  if (!isEven(item, source.soundPacketFrames, oneTick)) source.soundPacketFrames = 0;
  source.hasSoundAnchor = true;
  source.soundAnchor = toSamples(scan.times.firstPts, item);
  // Time stamps coarser than a sample round the encoder's delay; what is heard first is then at zero exactly.
  if (skip > 0 && oneTick > 1 && std::llabs(source.soundAnchor + skip) <= oneTick) source.soundAnchor = -skip;
  bool isMoved = skip > 0;
  int64_t first = source.soundAnchor + skip, end = source.soundAnchor + soundLength(item, oneTick);
  if (source.parameters->codec_id == AV_CODEC_ID_VORBIS) {
    // The first packet gives no sound. Where its time is before zero the second one's is right; else what that one gives is heard
    // from the first one's time on.
    const int64_t step = toSamples(scan.firstStep, item);
    if (source.soundAnchor < 0 && tellsSamples(item)) {
      isMoved = true;
      first = source.soundAnchor + step;
      end = std::min(end + step, toSamples(scan.times.endPts, item));
    } else {
      source.soundAnchor -= step;
    }
  }
  return {first, std::max(first, end - scan.discardFrames), isMoved};
}

struct Placement {
  CMTime start, mediaStart, duration;
};

CMTime timeOfTicks(int64_t ticks, const ScannedTrack& item) {
  return ticks == 0 ? kCMTimeZero : CMTimeMake(ticks * item.source->numerator, item.source->denominator);
}

Placement placementOf(const ScannedTrack& item) {
  const SampleTimes& times = item.scan->times;
  const CMTime stamped = timeOfTicks(times.firstPts, item);
  if (item.track->kind == MediaKind::video) return {stamped, stamped, timeOfTicks(times.endPts - times.firstPts, item)};
  const SoundExtent sound = placeSound(item);
  const auto rate = static_cast<CMTimeScale>(item.track->sampleRate);
  const CMTime first = sound.first == 0 ? kCMTimeZero : CMTimeMake(sound.first, rate);
  return {sound.isMoved ? first : stamped, first, CMTimeMake(sound.end - sound.first, rate)};
}

}  // namespace

void placeScannedTracks(const std::vector<ScannedTrack>& tracks) {
  std::vector<Placement> placements;
  CMTime zero = kCMTimePositiveInfinity;
  for (const ScannedTrack& item : tracks) {
    placements.push_back(placementOf(item));
    zero = CMTimeMinimum(zero, placements.back().start);
  }
  for (size_t i = 0; i < tracks.size(); ++i) {
    MediaTrack& track = *tracks[i].track;
    const Placement& place = placements[i];
    const CMTime late = CMTimeSubtract(place.start, zero);
    if (late.value > 0) track.edits.push_back({CMTimeRangeMake(kCMTimeZero, late), kCMTimeInvalid});
    const CMTime start = late.value > 0 ? late : kCMTimeZero;
    if (place.duration.value > 0) track.edits.push_back({CMTimeRangeMake(start, place.duration), place.mediaStart});
    track.timeRange = timeRangeOf(track.edits);
  }
}

}  // namespace vidloom
