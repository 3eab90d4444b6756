// What an ISO file's edit lists mean: which media is shown when.
#pragma once

#include <optional>
#include <vector>

#include "vidloom/platform/ffmpeg/MovieHeader.h"

namespace vidloom {

/// The media of a track that there is, in ticks of its timescale.
struct MediaExtent {
  int64_t firstTicks = 0, endTicks = 0;
  int64_t lastTicks = 0;  ///< as far as the samples' durations reach: an edit may keep the last sample until then
};

/// The track's edits in asset time, without gaps, the first at zero. Without an edit list the media begins with its first picture
/// or sample. An edit that ends within one tick of the movie of the media's own end ends there; a longer one is cut to where
/// the media's durations end.
std::vector<MediaEdit> movieEdits(const MovieHeaderTrack& track, int32_t movieTimescale, const MediaExtent& extent);

/// What a file of sound alone says in its "iTunSMPB" tag: encoder delay and length, in samples.
struct GaplessTag {
  int64_t delay = 0, length = 0;
  static std::optional<GaplessTag> parse(const char* text);
};

/// From the end of a leading empty edit to the end of the last edit; empty at zero where nothing is shown.
CMTimeRange timeRangeOf(const std::vector<MediaEdit>& edits);

}  // namespace vidloom
