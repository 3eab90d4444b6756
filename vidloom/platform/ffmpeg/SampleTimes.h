// When the samples of a track are decoded and shown.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/ffmpeg/BoxReader.h"

namespace vidloom {

/// A place where decoding can begin, in ticks of the track's media time.
struct KeyFrame {
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t position = -1;  ///< in the file, in bytes, where seeking goes by it
};

/// What is known of a track's samples without decoding any. Ticks of media time.
struct SampleTimes {
  int64_t sampleCount = 0;
  int64_t firstPts = 0;                         ///< the earliest one
  int64_t endPts = 0;                           ///< where the last shown sample ends
  int64_t durationTicks = 0;                    ///< sum of the samples' durations
  int64_t shortestDelta = 0, longestDelta = 0;  ///< between samples, the last one's own duration left out
  int64_t firstDelta = 0, usualDelta = 0;       ///< of sound: the first sample's duration, and the most frequent one
  double usualShare = 0;                        ///< how many of the samples have the usual duration, 0 ... 1
  int reorderDepth = 0;                         ///< how many samples may be decoded before an earlier one is shown
  bool allAreKeyFrames = false;
  std::vector<KeyFrame> keyFrames;  ///< sorted by pts
};

/// The tables of one track of an ISO file, as stored.
struct SampleTables {
  ByteSpan timeToSample, compositionOffset, syncSamples;
  bool hasSyncSamples = false;  ///< without the box every sample is one
  int64_t sampleCount = 0;      ///< of sound: how many there are, whatever timeToSample says; 0: not known
};

/// Walks the tables. Fails (false) where they describe more than `maxSamples` samples, or times beyond 2^62 ticks. Key frames are
/// collected for pictures only.
bool readSampleTimes(const SampleTables& tables, int64_t maxSamples, bool forPictures, SampleTimes& times);

/// The depth of reordering of presentation times that arrive in decoding order, one by one.
class ReorderDepth {
 public:
  void add(int64_t pts);
  int depth() const { return depth_; }

 private:
  static constexpr size_t window = 17;
  int64_t recent_[window] = {};
  size_t count_ = 0;
  int depth_ = 0;
};

}  // namespace vidloom
