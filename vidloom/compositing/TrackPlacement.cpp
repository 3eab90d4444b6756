#include "vidloom/compositing/TrackPlacement.h"

#include <algorithm>
#include <random>
#include <utility>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/speed/LUMScaleTime.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

CMPersistentTrackID randomTrackID() {
  static thread_local std::mt19937 generator{std::random_device{}()};
  return static_cast<CMPersistentTrackID>(std::uniform_int_distribution<uint32_t>{}(generator) % 2147483647u);
}

std::shared_ptr<AVAssetTrack> firstTrack(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType) {
  if (!asset) return nullptr;
  const auto tracks = asset->tracksWithMediaType(mediaType);
  return tracks.empty() ? nullptr : tracks.front();
}

bool isMuted(const LUMTrack& track) {
  const auto* media = dynamic_cast<const LUMAVAssetTrack*>(&track);
  return media && media->muteAudioFlag();
}

/// Stretches the segments that lie on the track from `range` on, from left to right: what follows a segment moves with it.
void scaleSegments(AVMutableCompositionTrack& track, const std::vector<LUMScaleTime>& segments, const CMTimeRange& range) {
  CMTime cursor = range.start;
  CMTime previousEnd = kCMTimeZero;
  for (size_t i = 0; i < segments.size(); ++i) {
    const CMTimeRange source = segments[i].timeRange();
    cursor = CMTimeAdd(cursor, i == 0 ? source.start : CMTimeSubtract(source.start, previousEnd));
    track.scaleTimeRange(CMTimeRangeMake(cursor, source.duration), segments[i].duration());
    cursor = CMTimeAdd(cursor, segments[i].duration());
    previousEnd = CMTimeAdd(source.start, source.duration);
  }
}

}  // namespace

void TrackPlacement::setItems(Items items) {
  items_ = std::move(items);
  indexed_ = false;
}

TrackPlacement::Lane* TrackPlacement::laneFor(const AVMediaType& mediaType) {
  if (mediaType == AVMediaTypeVideo) return &video_;
  return mediaType == AVMediaTypeAudio ? &audio_ : nullptr;
}

void TrackPlacement::indexAgain() {
  video_ = {};
  audio_ = {};
  for (const auto& item : items_) {
    Lane* lane = item ? laneFor(item->mediaType()) : nullptr;
    if (!lane) continue;
    lane->items.push_back(item);
    const size_t row = lane->rows.addRow();
    for (const auto& inner : item->innerTracks()) lane->rows.occupy(row, PlacementIndex::spanOf(inner->trackGlobalTimeRange()));
  }
  indexed_ = true;
}

std::shared_ptr<AVMutableCompositionTrack> TrackPlacement::trackFor(const std::shared_ptr<LUMTrack>& track,
                                                                    const AVMediaType& mediaType,
                                                                    const std::shared_ptr<AVMutableComposition>& composition) {
  if (!indexed_) indexAgain();
  const auto span = PlacementIndex::spanOf(track->trackGlobalTimeRange());
  Lane* lane = laneFor(mediaType);
  const auto free = lane ? lane->rows.firstRowWithRoom(span) : std::nullopt;
  const size_t row = free || !lane ? free.value_or(0) : lane->rows.addRow();
  if (lane) lane->rows.occupy(row, span);
  if (free) {
    lane->items[row]->innerTracks().push_back(track);
    return lane->items[row]->track();
  }
  auto onTrack = composition->addMutableTrackWithMediaType(mediaType, randomTrackID());
  auto item = AVMutableCompositionTrack_Item::initWithTrack(onTrack, mediaType);
  item->innerTracks().push_back(track);
  if (lane) lane->items.push_back(item);
  items_.push_back(std::move(item));
  return onTrack;
}

void TrackPlacement::place(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVMutableComposition>& composition,
                           const VideoInserted& videoInserted) {
  const std::shared_ptr<AVAsset> asset = track->dynamicAsset();
  ScaleTimes scaleTimes;
  if (const auto scaleContext = track->scaleContext()) scaleTimes = scaleContext->generateTimesForTrack(track);
  std::stable_sort(scaleTimes.begin(), scaleTimes.end(), [](const LUMScaleTime& a, const LUMScaleTime& b) {
    return CMTimeCompare(a.timeRange().start, b.timeRange().start) < 0;
  });
  placeVideo(track, firstTrack(asset, AVMediaTypeVideo), scaleTimes, composition, videoInserted);
  placeAudio(track, firstTrack(asset, AVMediaTypeAudio), scaleTimes, composition);
}

void TrackPlacement::placeVideo(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVAssetTrack>& source,
                                const ScaleTimes& scaleTimes, const std::shared_ptr<AVMutableComposition>& composition,
                                const VideoInserted& videoInserted) {
  if (track->isContentStatic()) {
    trackFor(track, AVMediaTypeVideo, composition)->insertEmptyTimeRange(track->trackGlobalTimeRange());
    return;
  }
  if (track->isOnlyAudioTrack()) return;
  const auto onTrack = trackFor(track, AVMediaTypeVideo, composition);
  if (!source) return;
  const CMTimeRange global = track->trackGlobalTimeRange();
  std::optional<NSError> error;
  if (onTrack->insertTimeRange(track->trackInnerTimeRange(), source, global.start, &error)) error.reset();
  if (videoInserted) videoInserted(*onTrack);
  if (track->isScaled()) scaleSegments(*onTrack, scaleTimes, global);
  if (error) {
    LUMGlobal::LUMLog("Cannot insert track(AVMediaTypeVideo) function in process:instruction:composition: error: " +
                      error->localizedDescription());
  }
}

void TrackPlacement::placeAudio(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVAssetTrack>& source,
                                const ScaleTimes& scaleTimes, const std::shared_ptr<AVMutableComposition>& composition) {
  if (!source || isMuted(*track)) return;
  const CMTimeRange inner = track->audioTrackInnerTimeRange();
  if (CMTimeCompare(inner.duration, kCMTimeZero) <= 0) return;
  const auto onTrack = trackFor(track, AVMediaTypeAudio, composition);
  const CMTimeRange global = track->audioTrackGlobalTimeRange();
  std::optional<NSError> error;
  if (onTrack->insertTimeRange(inner, source, global.start, &error)) error.reset();
  if (track->isScaled()) scaleSegments(*onTrack, scaleTimes, global);
  if (error) {
    LUMGlobal::LUMLog("Cannot insert track(AVMediaTypeAudio) function in process:instruction:composition: error " +
                      error->description());
  }
}

void TrackPlacement::fillStillSlots(uint64_t fps) {
  std::shared_ptr<AVAsset> footage;
  for (const auto& item : items_) {
    const auto& inner = item->innerTracks();
    if (inner.empty() || !inner.back()->isContentStatic()) continue;
    const CMTimeRange slot = inner.back()->trackGlobalTimeRange();
    item->track()->removeTimeRange(slot);
    // One file for all slots: to open it costs more than all the rest.
    if (!footage) footage = LUMGlobal::LUMEmptyFootageForFPS(fps);
    fillStillSlot(*item->track(), slot, footage);
  }
}

void TrackPlacement::fillStillSlot(AVMutableCompositionTrack& slotTrack, const CMTimeRange& slot,
                                   const std::shared_ptr<AVAsset>& footage) {
  if (!footage) {
    LUMGlobal::LUMLog("Empty footage is NULL from call method LUMAVCompositionInstruction.finish()");
    return;
  }
  const auto source = firstTrack(footage, AVMediaTypeVideo);
  const CMTime footageDuration = source ? source->timeRange().duration : kCMTimeZero;
  CMTimeRange used = CMTimeRangeMake(kCMTimeZero, slot.duration);
  CMTime at = slot.start;
  if (CMTimeCompare(slot.duration, footageDuration) >= 0) {
    const CMTime lead = CMTimeSubtract(slot.duration, footageDuration);
    slotTrack.insertEmptyTimeRange(CMTimeRangeMake(slot.start, lead));
    used.duration = footageDuration;
    at = CMTimeAdd(slot.start, lead);
  }
  std::optional<NSError> error;
  if (!slotTrack.insertTimeRange(used, source, at, &error) && error)
    LUMGlobal::LUMLog("Cannot insert empty footage in LUMAVCompositionInstruction.finish() :" + error->description());
}

const AVMutableCompositionTrack_Item* TrackPlacement::videoItemOf(uint64_t objectId) const {
  for (auto item = items_.rbegin(); item != items_.rend(); ++item) {
    if ((*item)->mediaType() != AVMediaTypeVideo) continue;
    const auto& inner = std::as_const(**item).innerTracks();
    if (std::any_of(inner.begin(), inner.end(), [&](const auto& track) { return track->objectId() == objectId; }))
      return item->get();
  }
  return nullptr;
}

std::optional<CMPersistentTrackID> TrackPlacement::videoTrackIDOf(const std::shared_ptr<LUMTrack>& track) const {
  const auto* item = track ? videoItemOf(track->objectId()) : nullptr;
  return item ? std::optional(item->track()->trackID()) : std::nullopt;
}

}  // namespace vidloom
