// Timelines for the tests of this folder.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

/// A track without media that lies at [start, start + duration).
inline std::shared_ptr<LUMTrack> trackAt(uint64_t id, const CMTime& start, const CMTime& duration) {
  auto track = LUMTrack::initWithId(id);
  track->setStart(start);
  track->updateAssetDuration(duration);
  return track;
}
inline std::shared_ptr<LUMTrack> trackAt(uint64_t id, int startSeconds, int durationSeconds) {
  return trackAt(id, CMTimeMake(startSeconds, 1), CMTimeMake(durationSeconds, 1));
}

using Tracks = std::vector<std::shared_ptr<LUMTrack>>;

/// One instruction a list of tracks.
inline std::shared_ptr<LUMComposition> timelineOf(const std::vector<Tracks>& instructions, uint64_t fps = 30) {
  auto composition = LUMComposition::initWithSize({320, 180}, fps);
  uint64_t id = 1000;
  for (const Tracks& tracks : instructions) {
    auto instruction = LUMInstruction::initWithId(id++);
    instruction->addTracks(tracks);
    composition->addInstructions({instruction});
  }
  return composition;
}

inline std::shared_ptr<LUMAVCompositionInstruction> pipelineOf(const LUMAVCompositionData& data) {
  return std::dynamic_pointer_cast<LUMAVCompositionInstruction>(data.videoComposition()->instructions().at(0));
}

/// The object ids on each composition track of that type.
inline std::vector<std::vector<uint64_t>> idsPlaced(const LUMAVCompositionInstruction& pipeline, const AVMediaType& mediaType) {
  std::vector<std::vector<uint64_t>> ids;
  for (const auto& item : pipeline.composition_tracks()) {
    if (item->mediaType() != mediaType) continue;
    ids.emplace_back();
    for (const auto& track : std::as_const(*item).innerTracks()) ids.back().push_back(track->objectId());
  }
  return ids;
}

}  // namespace vidloom
