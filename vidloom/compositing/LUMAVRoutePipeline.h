// How the tracks of a timeline get onto the tracks of a composition.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"

namespace vidloom {

class AVMutableComposition;
class LUMInstruction;
class LUMTrack;

/// Takes any number of process() calls and then one finish(), all on the thread that builds.
class LUMAVRoutePipeline {
 public:
  virtual ~LUMAVRoutePipeline() = default;
  /// Places one track. What cannot be inserted is logged; the rest of the track and the next ones still are.
  virtual void process(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<LUMInstruction>& instruction,
                       const std::shared_ptr<AVMutableComposition>& composition) = 0;
  /// The composition's video track that carries the track with that object id; nullopt where none does. Any thread once the
  /// placement is finished.
  virtual std::optional<CMPersistentTrackID> pixelBufferTrackIdForTrack(const std::shared_ptr<LUMTrack>& track) const = 0;
  virtual void finish() = 0;
};

}  // namespace vidloom
