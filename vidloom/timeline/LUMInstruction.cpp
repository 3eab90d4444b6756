#include "vidloom/timeline/LUMInstruction.h"

#include <algorithm>

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

namespace {

CMTimeRange placeOf(const LUMTrack& track) { return {track.start(), track.duration()}; }

}  // namespace

std::shared_ptr<LUMInstruction> LUMInstruction::initWithId(uint64_t objectId) {
  auto instruction = std::make_shared<LUMInstruction>(LUMInstruction());
  return instruction->prepareWithId(objectId) ? instruction : nullptr;
}

bool LUMInstruction::prepareWithId(uint64_t objectId) {
  if (LUMGlobal::LUMIdsStackContainsObject(objectId)) {
    LUMGlobal::LUMLog(
        NSStringWithFormat("LUMInstruction object with id: %lu exist. Return NULL from LUMInstruction initWithId", objectId));
    return false;
  }
  tracks_.clear();
  start_ = kCMTimeZero;
  duration_ = kCMTimeZero;
  objectId_ = objectId;
  return true;
}

void LUMInstruction::addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks) {
  std::copy_if(tracks.begin(), tracks.end(), std::back_inserter(tracks_), [](const auto& track) { return track != nullptr; });
  updateDuration();
}

std::shared_ptr<LUMTrack> LUMInstruction::TRACK_AT_ID(uint64_t trackId) const {
  const auto found =
      std::find_if(tracks_.begin(), tracks_.end(), [trackId](const auto& track) { return track->objectId() == trackId; });
  return found == tracks_.end() ? nullptr : *found;
}

std::shared_ptr<LUMTrack> LUMInstruction::removeTrack(uint64_t trackId) {
  const std::shared_ptr<LUMTrack> track = TRACK_AT_ID(trackId);
  if (!track) return nullptr;
  std::erase(tracks_, track);
  updateDuration();
  return track;
}

void LUMInstruction::updateDuration() {
  CMTime latest = kCMTimeZero;
  for (const auto& track : tracks_) {
    const CMTime end = CMTimeAdd(track->start(), track->duration());
    if (CMTimeCompare(end, latest) == 1) latest = end;
  }
  duration_ = latest;
}

std::vector<std::shared_ptr<LUMTrack>> LUMInstruction::tracksForTime(const CMTime& time) const {
  std::vector<std::shared_ptr<LUMTrack>> found;
  for (const auto& track : tracks_) {
    if (LUMGlobal::CMTIMERANGE_CONTAINS_TIME(placeOf(*track), time)) found.push_back(track);
  }
  return found;
}

std::vector<std::shared_ptr<LUMTrack>> LUMInstruction::tracksForTime(const CMTime& time, uint64_t fps) const {
  std::vector<std::shared_ptr<LUMTrack>> found;
  for (const auto& track : tracks_) {
    if (LUMGlobal::CMTIMERANGE_CONTAINS_TIME(fps, placeOf(*track), time)) found.push_back(track);
  }
  return found;
}

}  // namespace vidloom
