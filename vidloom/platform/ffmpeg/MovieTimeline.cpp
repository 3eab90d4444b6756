#include "vidloom/platform/ffmpeg/MovieTimeline.h"

#include <algorithm>
#include <cstdio>

#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom {

namespace {

using detail::Int128;

constexpr unsigned kLongestDelay = 1 << 20;
constexpr unsigned long long kLongestLength = 1ULL << 48;
constexpr uint64_t kLongestEditSeconds = 1'000'000'000;  // longer ones are damage

class EditBuilder {
 public:
  EditBuilder(const MovieHeaderTrack& track, int32_t movieTimescale, const MediaExtent& extent)
      : track_(track), movieTimescale_(movieTimescale), extent_(extent) {}

  std::vector<MediaEdit> build() {
    for (size_t i = 0; i < track_.edits.size(); ++i) add(track_.edits[i], i + 1 == track_.edits.size());
    while (!edits_.empty() && edits_.back().isEmpty()) edits_.pop_back();
    if (edits_.empty()) append(CMTimeMake(extent_.firstTicks, track_.timescale), mediaTime(extent_.endTicks - extent_.firstTicks));
    return std::move(edits_);
  }

 private:
  CMTime mediaTime(int64_t ticks) const { return CMTimeMake(ticks, track_.timescale); }

  void append(const CMTime& mediaStart, const CMTime& duration) {
    if (duration.value <= 0) return;
    edits_.push_back({CMTimeRangeMake(end_, duration), mediaStart});
    end_ = CMTimeAdd(end_, duration);
  }

  void add(const MovieHeaderEdit& edit, bool isLast) {
    const bool isAbsurd = edit.duration / static_cast<uint64_t>(movieTimescale_) > kLongestEditSeconds;
    const CMTime stated = isAbsurd ? kCMTimeInvalid : CMTimeMake(static_cast<int64_t>(edit.duration), movieTimescale_);
    if (edit.mediaTime < 0) {
      if (!isAbsurd) append(kCMTimeInvalid, stated);
      return;
    }
    const CMTime available = mediaTime(std::max<int64_t>(0, extent_.endTicks - edit.mediaTime));
    const bool takesAll = isAbsurd || edit.duration == 0 || isWithinOneTick(stated, available);
    const CMTime longest = mediaTime(std::max(extent_.endTicks, extent_.lastTicks) - edit.mediaTime);
    const CMTime duration = takesAll ? available : CMTimeMinimum(stated, longest);
    append(mediaTime(edit.mediaTime), duration);
    if (!isLast && !takesAll) append(kCMTimeInvalid, CMTimeSubtract(stated, duration));
  }

  bool isWithinOneTick(const CMTime& stated, const CMTime& available) const {
    const Int128 difference = Int128{stated.value} * available.timescale - Int128{available.value} * stated.timescale;
    return (difference < 0 ? -difference : difference) <= available.timescale;
  }

  const MovieHeaderTrack& track_;
  int32_t movieTimescale_;
  MediaExtent extent_;
  std::vector<MediaEdit> edits_;
  CMTime end_ = kCMTimeZero;
};

}  // namespace

std::vector<MediaEdit> movieEdits(const MovieHeaderTrack& track, int32_t movieTimescale, const MediaExtent& extent) {
  return EditBuilder(track, movieTimescale, extent).build();
}

std::optional<GaplessTag> GaplessTag::parse(const char* text) {
  unsigned reserved = 0, delay = 0, padding = 0;
  unsigned long long length = 0;
  if (!text || std::sscanf(text, " %x %x %x %llx", &reserved, &delay, &padding, &length) != 4) return std::nullopt;
  if (delay > kLongestDelay || length == 0 || length > kLongestLength) return std::nullopt;
  return GaplessTag{delay, static_cast<int64_t>(length)};
}

CMTimeRange timeRangeOf(const std::vector<MediaEdit>& edits) {
  CMTime start = kCMTimeZero;
  for (const MediaEdit& edit : edits) {
    if (!edit.isEmpty()) return CMTimeRangeFromTimeToTime(edit.target.start, CMTimeRangeGetEnd(edits.back().target));
    start = CMTimeRangeGetEnd(edit.target);
  }
  return CMTimeRangeMake(start, kCMTimeZero);
}

}  // namespace vidloom
