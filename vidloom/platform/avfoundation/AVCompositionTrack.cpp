#include "vidloom/platform/avfoundation/AVCompositionTrack.h"

#include <algorithm>
#include <sstream>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/SegmentList.h"
#include "vidloom/platform/coremedia/CMTimeRational.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

namespace {

constexpr CMTimeScale kDefaultTimeScale = 600;
constexpr int64_t kInvalidParameterStatus = -12780;

const MediaTrack& mediaTrackOf(const MediaSegment& segment) {
  return segment.file->tracks()[static_cast<size_t>(segment.trackIndex)];
}

bool isPosition(const CMTime& time) { return detail::isNumber(time) && time.epoch == 0; }

/// A range with a beginning; it may have no end.
bool isUsable(const CMTimeRange& range) {
  return CMTIMERANGE_IS_VALID(range) && isPosition(range.start) &&
         (isPosition(range.duration) || CMTIME_IS_POSITIVEINFINITY(range.duration));
}

/// The part of `range` that lies within zero and `end`; empty where there is none.
CMTimeRange clipped(const CMTimeRange& range, const CMTime& end) {
  const CMTime from = CMTimeMaximum(range.start, kCMTimeZero);
  const CMTime to = CMTimeMinimum(CMTimeRangeGetEnd(range), end);
  if (CMTimeCompare(from, to) >= 0) return kCMTimeRangeZero;
  const bool whole = CMTimeCompare(from, range.start) == 0 && CMTimeCompare(to, end) < 0;
  return whole ? range : CMTimeRangeFromTimeToTime(from, to);
}

NSError insertionError(const std::string& cause, const CMTimeRange& range, const CMTime& time,
                       const std::shared_ptr<AVAssetTrack>& source) {
  std::ostringstream text;
  text << "Cannot insert " << range << " of ";
  if (source && source->mediaTrack() == nullptr) text << "composition ";
  if (source) {
    text << "track " << source->trackID() << " (" << source->mediaType() << ')';
  } else {
    text << "no track";
  }
  text << " at " << time << ": " << cause;
  std::filesystem::path file;
  if (source) {
    for (const MediaSegment& segment : source->mediaSegments()) {
      if (file.empty() && !segment.isEmpty()) file = segment.file->path();
    }
  }
  if (!file.empty()) text << " [" << file.string() << ']';
  return AVMakeError(AVErrorUnknown, text.str(), file, NSError("NSOSStatusErrorDomain", kInvalidParameterStatus));
}

/// The media's range in the time of its file: the first edit that shows its beginning decides.
CMTimeRange assetRange(const MediaSegment& segment) {
  for (const MediaEdit& edit : mediaTrackOf(segment).edits) {
    if (edit.isEmpty()) continue;
    const CMTimeRange shown = CMTimeRangeMake(edit.mediaStart, edit.target.duration);
    if (!CMTimeRangeContainsTime(shown, segment.media.start)) continue;
    return {CMTimeAdd(edit.target.start, CMTimeSubtract(segment.media.start, edit.mediaStart)), segment.media.duration};
  }
  return segment.media;
}

/// Puts the pieces, whose times begin at zero, at `time`; what is there moves back by `length`.
void insertPieces(detail::SegmentList& segments, detail::SegmentList pieces, const CMTime& time, const CMTime& length) {
  const CMTime end = detail::endOfSegments(segments);
  if (CMTimeCompare(time, end) > 0) segments.push_back(detail::emptySegment(CMTimeRangeFromTimeToTime(end, time)));
  const size_t index = detail::splitSegmentsAt(segments, time);
  const size_t count = pieces.size();
  detail::moveSegments(segments, index, time, CMTimeAdd(time, length));
  detail::moveSegments(pieces, 0, kCMTimeZero, time);
  segments.insert(segments.begin() + static_cast<std::ptrdiff_t>(index), std::make_move_iterator(pieces.begin()),
                  std::make_move_iterator(pieces.end()));
  detail::mergeEmptySegmentsAt(segments, index + count);
  detail::mergeEmptySegmentsAt(segments, index);
  detail::dropTrailingEmptySegments(segments);
}

}  // namespace

const MediaTrack* AVCompositionTrack::firstMediaTrack() const {
  const auto media =
      std::find_if(segments_.begin(), segments_.end(), [](const MediaSegment& segment) { return !segment.isEmpty(); });
  return media == segments_.end() ? nullptr : &mediaTrackOf(*media);
}

std::vector<AVCompositionTrackSegment> AVCompositionTrack::segments() const {
  std::vector<AVCompositionTrackSegment> published;
  published.reserve(segments_.size());
  for (const MediaSegment& segment : segments_) {
    if (segment.isEmpty()) {
      published.push_back({{kCMTimeRangeInvalid, segment.target}, {}, kCMPersistentTrackID_Invalid});
    } else {
      published.push_back({{assetRange(segment), segment.target}, segment.file->path().string(), mediaTrackOf(segment).trackID});
    }
  }
  return published;
}

CMTimeRange AVCompositionTrack::timeRange() const {
  if (segments_.empty()) return kCMTimeRangeZero;
  const MediaSegment& first = segments_.front();
  return CMTimeRangeFromTimeToTime(first.isEmpty() ? CMTimeRangeGetEnd(first.target) : kCMTimeZero,
                                   detail::endOfSegments(segments_));
}

CGSize AVCompositionTrack::naturalSize() const {
  const MediaTrack* media = firstMediaTrack();
  return media != nullptr ? media->naturalSize : CGSizeZero;
}

float AVCompositionTrack::nominalFrameRate() const {
  const MediaTrack* media = firstMediaTrack();
  return media != nullptr ? static_cast<float>(media->nominalFrameRate) : 0.0f;
}

CMTimeScale AVCompositionTrack::naturalTimeScale() const {
  const MediaTrack* media = firstMediaTrack();
  return media != nullptr ? media->naturalTimeScale : kDefaultTimeScale;
}

std::vector<CMFormatDescriptionRef> AVCompositionTrack::formatDescriptions() const {
  return formatDescriptionsOf(firstMediaTrack());
}

bool AVMutableCompositionTrack::insertTimeRange(const CMTimeRange& timeRange, const std::shared_ptr<AVAssetTrack>& ofTrack,
                                                const CMTime& atTime, std::optional<NSError>* error) {
  const auto fail = [&](const std::string& cause) {
    if (error != nullptr) *error = insertionError(cause, timeRange, atTime, ofTrack);
    return false;
  };
  if (!ofTrack) return fail("there is no source track");
  if (!isUsable(timeRange)) return fail("the range is invalid");
  const CMTime time = CMTIME_IS_INVALID(atTime) ? detail::endOfSegments(segments_) : atTime;
  if (!isPosition(time) || time.value < 0) return fail("the time is not a position on a track");
  if (CMTIMERANGE_IS_EMPTY(timeRange)) return true;

  const auto* composed = dynamic_cast<const AVCompositionTrack*>(ofTrack.get());
  const detail::SegmentList owned = composed != nullptr ? detail::SegmentList{} : ofTrack->mediaSegments();
  const detail::SegmentList& source = composed != nullptr ? composed->segmentList() : owned;
  const CMTimeRange range = clipped(timeRange, detail::endOfSegments(source));
  if (CMTIMERANGE_IS_EMPTY(range)) return fail("the source track has nothing in this range");
  if (!isPosition(CMTimeAdd(CMTimeAdd(time, range.duration), detail::endOfSegments(segments_)))) {
    return fail("the track would become too long");
  }
  insertPieces(segments_, detail::copyOfSegments(source, range), time, range.duration);
  return true;
}

void AVMutableCompositionTrack::insertEmptyTimeRange(const CMTimeRange& timeRange) {
  if (!isUsable(timeRange) || !isPosition(timeRange.duration) || CMTIMERANGE_IS_EMPTY(timeRange)) return;
  const CMTime end = detail::endOfSegments(segments_);
  if (timeRange.start.value < 0 || CMTimeCompare(timeRange.start, end) >= 0) return;
  if (!isPosition(CMTimeAdd(end, timeRange.duration))) return;
  insertPieces(segments_, {detail::emptySegment({kCMTimeZero, timeRange.duration})}, timeRange.start, timeRange.duration);
}

void AVMutableCompositionTrack::removeTimeRange(const CMTimeRange& timeRange) {
  if (!isUsable(timeRange)) return;
  const CMTimeRange range = clipped(timeRange, detail::endOfSegments(segments_));
  if (CMTIMERANGE_IS_EMPTY(range)) return;
  const CMTime end = CMTimeRangeGetEnd(range);
  const auto first = static_cast<std::ptrdiff_t>(detail::splitSegmentsAt(segments_, range.start));
  const auto last = static_cast<std::ptrdiff_t>(detail::splitSegmentsAt(segments_, end));
  segments_.erase(segments_.begin() + first, segments_.begin() + last);
  detail::moveSegments(segments_, static_cast<size_t>(first), end, range.start);
  detail::mergeEmptySegmentsAt(segments_, static_cast<size_t>(first));
  detail::dropTrailingEmptySegments(segments_);
}

void AVMutableCompositionTrack::scaleTimeRange(const CMTimeRange& timeRange, const CMTime& toDuration) {
  if (!isUsable(timeRange) || !isPosition(timeRange.duration) || !isPosition(toDuration) || toDuration.value < 0) return;
  const CMTimeRange range = clipped(timeRange, detail::endOfSegments(segments_));
  if (CMTIMERANGE_IS_EMPTY(range)) return;
  if (toDuration.value == 0) return removeTimeRange(range);
  const CMTime duration = CMTimeMapDurationFromRangeToRange(range.duration, timeRange, {kCMTimeZero, toDuration});
  if (!isPosition(duration) || !isPosition(CMTimeAdd(duration, detail::endOfSegments(segments_)))) return;
  if (duration.value == 0) return removeTimeRange(range);

  const CMTimeRange stretched{range.start, CMTimeCompare(duration, toDuration) == 0 ? toDuration : duration};
  const CMTime oldEnd = CMTimeRangeGetEnd(range);
  const size_t first = detail::splitSegmentsAt(segments_, range.start);
  const size_t last = detail::splitSegmentsAt(segments_, oldEnd);
  detail::moveSegments(segments_, last, oldEnd, CMTimeRangeGetEnd(stretched));
  detail::stretchSegments(segments_, first, last, range, stretched);
  for (size_t i = last + 1; i-- > first;) detail::mergeEmptySegmentsAt(segments_, i);
}

}  // namespace vidloom
