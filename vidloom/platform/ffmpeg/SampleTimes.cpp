#include "vidloom/platform/ffmpeg/SampleTimes.h"

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>

namespace vidloom {

namespace {

constexpr size_t kMostDeltas = 64;  // that are told apart
constexpr int64_t kLatestTick = int64_t{1} << 62;

/// The runs of a table whose entries are (count, value), one sample at a time.
class RunTable {
 public:
  explicit RunTable(ByteSpan body) : reader_(body) {
    reader_.skip(4);
    entries_ = reader_.u32();
  }
  bool next(uint32_t& value) {
    while (left_ == 0) {
      if (entries_ == 0 || reader_.remaining() < 8) return false;
      --entries_;
      left_ = reader_.u32();
      value_ = reader_.u32();
    }
    --left_;
    value = value_;
    return true;
  }

 private:
  ByteReader reader_;
  uint32_t entries_ = 0, left_ = 0, value_ = 0;
};

class SyncTable {
 public:
  explicit SyncTable(const SampleTables& tables) : reader_(tables.syncSamples), all_(!tables.hasSyncSamples) {
    reader_.skip(4);
    entries_ = reader_.u32();
    advance();
  }
  bool isAll() const { return all_; }
  /// Samples count from one and are asked for in order.
  bool contains(int64_t number) {
    while (next_ < number && advance()) {
    }
    return all_ || next_ == number;
  }

 private:
  bool advance() {
    if (entries_ == 0 || reader_.remaining() < 4) {
      next_ = std::numeric_limits<int64_t>::max();
      return false;
    }
    --entries_;
    next_ = reader_.u32();
    return true;
  }
  ByteReader reader_;
  bool all_;
  uint32_t entries_ = 0;
  int64_t next_ = -1;
};

int64_t sampleTotal(ByteSpan timeToSample) {
  ByteReader reader(timeToSample);
  reader.skip(4);
  int64_t total = 0;
  for (uint32_t entries = reader.u32(); entries > 0 && reader.remaining() >= 8; --entries) {
    total += reader.u32();
    reader.skip(4);
  }
  return total;
}

/// The last sample's own duration says nothing about the distance between two.
void addDeltas(ByteSpan timeToSample, SampleTimes& times) {
  ByteReader reader(timeToSample);
  reader.skip(4);
  times.shortestDelta = std::numeric_limits<int64_t>::max();
  for (uint32_t entries = reader.u32(); entries > 0 && reader.remaining() >= 8; --entries) {
    const int64_t count = reader.u32(), delta = reader.i32();
    const bool isLast = entries == 1 || reader.remaining() < 8;
    if (count == 0 || (isLast && count == 1 && times.longestDelta > 0)) continue;
    times.shortestDelta = std::min(times.shortestDelta, delta);
    times.longestDelta = std::max(times.longestDelta, delta);
  }
}

/// A track of sound has its durations from the runs alone: it may have very many samples (uncompressed ones count each). Where
/// there are more samples than the runs tell of, the rest are like the last one.
bool addRuns(const SampleTables& tables, SampleTimes& times) {
  ByteReader reader(tables.timeToSample);
  reader.skip(4);
  std::map<int64_t, int64_t> counts;
  const int64_t total = tables.sampleCount;
  for (uint32_t entries = reader.u32(); entries > 0 && reader.remaining() >= 8; --entries) {
    int64_t count = reader.u32();
    const int64_t delta = reader.i32(), left = total - times.sampleCount;
    const bool isLast = entries == 1 || reader.remaining() < 8;
    if (total > 0) count = isLast ? left : std::min(count, left);
    if (times.sampleCount == 0 && count > 0) times.firstDelta = delta;
    if (counts.size() < kMostDeltas || counts.contains(delta)) counts[delta] += count;
    times.sampleCount += count;
    times.durationTicks += count * std::max<int64_t>(delta, 0);
    if (times.durationTicks > kLatestTick) return false;
  }
  for (const auto& [delta, count] : counts) {
    const double share = static_cast<double>(count) / static_cast<double>(std::max<int64_t>(1, times.sampleCount));
    if (share > times.usualShare) std::tie(times.usualDelta, times.usualShare) = std::pair(delta, share);
  }
  times.endPts = times.durationTicks;
  times.allAreKeyFrames = true;
  return true;
}

struct Sample {
  int64_t number, dts, pts, delta;
};

void addPicture(const Sample& sample, bool isKey, SampleTimes& times, ReorderDepth& reordering) {
  times.firstPts = times.sampleCount == 0 ? sample.pts : std::min(times.firstPts, sample.pts);
  const int64_t end = sample.pts + std::max<int64_t>(sample.delta, 0);
  times.endPts = times.sampleCount == 0 ? end : std::max(times.endPts, end);
  ++times.sampleCount;
  reordering.add(sample.pts);
  if (isKey) times.keyFrames.push_back({sample.pts, sample.dts, -1});
}

}  // namespace

void ReorderDepth::add(int64_t pts) {
  int later = 0;
  for (size_t i = 0; i < std::min(count_, window); ++i) later += recent_[i] > pts ? 1 : 0;
  depth_ = std::max(depth_, later);
  recent_[count_++ % window] = pts;
}

bool readSampleTimes(const SampleTables& tables, int64_t maxSamples, bool forPictures, SampleTimes& times) {
  times = {};
  addDeltas(tables.timeToSample, times);
  if (!forPictures) return addRuns(tables, times);
  if (sampleTotal(tables.timeToSample) > maxSamples) return false;
  RunTable deltas(tables.timeToSample), offsets(tables.compositionOffset);
  SyncTable sync(tables);
  ReorderDepth reordering;
  int64_t dts = 0;
  uint32_t delta = 0, offset = 0;
  while (deltas.next(delta)) {
    if (!offsets.next(offset)) offset = 0;
    const Sample sample{times.sampleCount + 1, dts, dts + static_cast<int32_t>(offset), static_cast<int32_t>(delta)};
    addPicture(sample, sync.contains(sample.number), times, reordering);
    dts += std::max<int64_t>(sample.delta, 0);
    if (dts > kLatestTick) return false;
  }
  times.durationTicks = dts;
  times.reorderDepth = reordering.depth();
  times.allAreKeyFrames = sync.isAll();
  std::stable_sort(times.keyFrames.begin(), times.keyFrames.end(),
                   [](const KeyFrame& a, const KeyFrame& b) { return a.pts < b.pts; });
  return true;
}

}  // namespace vidloom
