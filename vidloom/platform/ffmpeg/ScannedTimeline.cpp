#include "vidloom/platform/ffmpeg/ScannedTimeline.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/ffmpeg/MovieTimeline.h"

extern "C" {
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
};

SoundExtent placeSound(const ScannedTrack& item) {
  const ScannedStream& scan = *item.scan;
  TrackSource& source = *item.source;
  const AVRational base = timeBaseOf(source);
  const auto rate = static_cast<int>(item.track->sampleRate);
  const int64_t oneTick = av_rescale_q_rnd(1, base, {1, rate}, AV_ROUND_UP);
  source.soundAnchor = toSamples(scan.times.firstPts, item);
  // Time stamps coarser than a sample round the encoder's delay; what is heard first is then at zero exactly.
  if (scan.skipFrames > 0 && oneTick > 1 && std::llabs(source.soundAnchor + scan.skipFrames) <= oneTick) {
    source.soundAnchor = -scan.skipFrames;
  }
  source.hasSoundAnchor = true;
  const int64_t length = av_rescale_q(scan.times.endPts - scan.times.firstPts, base, {1, rate});
  const int64_t first = source.soundAnchor + scan.skipFrames;
  return {first, std::max(first, source.soundAnchor + length - scan.discardFrames)};
}

struct Placement {
  CMTime start, mediaStart, duration;
};

Placement placementOf(const ScannedTrack& item) {
  const AVRational base = timeBaseOf(*item.source);
  if (item.track->kind == MediaKind::audio) {
    const SoundExtent sound = placeSound(item);
    const auto rate = static_cast<CMTimeScale>(item.track->sampleRate);
    const CMTime first = CMTimeMake(sound.first, rate);
    return {first, first, CMTimeMake(sound.end - sound.first, rate)};
  }
  const SampleTimes& times = item.scan->times;
  const CMTime first = CMTimeMake(times.firstPts * base.num, base.den);
  return {first, first, CMTimeMake((times.endPts - times.firstPts) * base.num, base.den)};
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
