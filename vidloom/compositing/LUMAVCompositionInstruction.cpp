#include "vidloom/compositing/LUMAVCompositionInstruction.h"

#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {

std::shared_ptr<LUMAVCompositionInstruction> LUMAVCompositionInstruction::initWithComposition(
    std::shared_ptr<LUMComposition> composition) {
  struct Concrete : LUMAVCompositionInstruction {};
  auto instruction = std::make_shared<Concrete>();
  instruction->composition_ = std::move(composition);
  instruction->updateDuration();
  return instruction;
}

void LUMAVCompositionInstruction::updateDuration() {
  if (!composition_) return;
  for (const auto& instruction : composition_->getCompositionInstructions()) {
    const CMTime length = instruction->duration();
    if (CMTimeCompare(length, duration_) == 1) duration_ = length;
  }
}

std::shared_ptr<AVMutableCompositionTrack> LUMAVCompositionInstruction::preferdAVVideoCompositionTrackForRange(
    const std::shared_ptr<LUMTrack>& track, const AVMediaType& mediaType, const std::shared_ptr<AVMutableComposition>& comp) {
  return placement_.trackFor(track, mediaType, comp);
}

void LUMAVCompositionInstruction::process(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<LUMInstruction>&,
                                          const std::shared_ptr<AVMutableComposition>& composition) {
  placement_.place(track, composition);
}

std::optional<CMPersistentTrackID> LUMAVCompositionInstruction::pixelBufferTrackIdForTrack(
    const std::shared_ptr<LUMTrack>& track) const {
  return placement_.videoTrackIDOf(track);
}

void LUMAVCompositionInstruction::finish() { placement_.fillStillSlots(composition_ ? composition_->fps() : 0); }

void LUMAVCompositionInstruction::drawWithRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) {
  if (const auto delegate = this->delegate().lock()) {
    delegate->drawAsync(request, shared_from_this());
    return;
  }
  const std::string text = "Please implement LUMAVAsyncDrawDelegate delegate";
  LUMGlobal::LUMLog(text);
  request->finishWithError(NSError::errorWithDomain("LUMAVCompositionInstruction", 202, {{NSLocalizedDescriptionKey, text}}));
}

std::weak_ptr<LUMAVAsyncDrawDelegate> LUMAVCompositionInstruction::delegate() const {
  const std::lock_guard lock(delegateMutex_);
  return delegate_;
}

void LUMAVCompositionInstruction::setDelegate(std::weak_ptr<LUMAVAsyncDrawDelegate> delegate) {
  const std::lock_guard lock(delegateMutex_);
  delegate_ = std::move(delegate);
}

}  // namespace vidloom
