#include "vidloom/compositing/AVAVLightCompositionInstruction.h"

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

std::shared_ptr<AVAVLightCompositionInstruction> AVAVLightCompositionInstruction::initFPS(uint64_t fps) {
  struct Concrete : AVAVLightCompositionInstruction {};
  auto instruction = std::make_shared<Concrete>();
  instruction->fps_ = fps;
  return instruction;
}

std::shared_ptr<AVMutableCompositionTrack> AVAVLightCompositionInstruction::preferdAVVideoCompositionTrackForRange(
    const std::shared_ptr<LUMTrack>& track, const AVMediaType& mediaType, const std::shared_ptr<AVMutableComposition>& comp) {
  return placement_.trackFor(track, mediaType, comp);
}

void AVAVLightCompositionInstruction::process(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<LUMInstruction>&,
                                              const std::shared_ptr<AVMutableComposition>& composition) {
  placement_.place(track, composition, [&track](const AVMutableCompositionTrack& onTrack) {
    NSLog(NSStringWithFormat("insert for trackID: %i  start time: %f duration: %f", onTrack.trackID(),
                             CMTimeGetSeconds(track->trackGlobalTimeRange().start),
                             CMTimeGetSeconds(track->trackInnerTimeRange().duration)));
  });
}

std::optional<CMPersistentTrackID> AVAVLightCompositionInstruction::pixelBufferTrackIdForTrack(
    const std::shared_ptr<LUMTrack>& track) const {
  return placement_.videoTrackIDOf(track);
}

std::optional<uint64_t> AVAVLightCompositionInstruction::trackIdForPixelBufferTrackId(uint64_t objectId) const {
  return placement_.videoItemOf(objectId) ? std::optional(objectId) : std::nullopt;
}

void AVAVLightCompositionInstruction::finish() { placement_.fillStillSlots(fps_); }

}  // namespace vidloom
