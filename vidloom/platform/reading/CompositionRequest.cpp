#include "vidloom/platform/reading/CompositionRequest.h"

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

CompositionRequest::CompositionRequest(const CMTime& time, std::shared_ptr<const AVVideoCompositionRenderContext> context,
                                       std::shared_ptr<AVVideoCompositionInstruction> instruction, std::vector<Source> sources,
                                       Receiver receiver)
    : time_(time),
      context_(std::move(context)),
      instruction_(std::move(instruction)),
      sources_(std::move(sources)),
      receiver_(std::move(receiver)) {}

CompositionRequest::~CompositionRequest() {
  if (answers_ > 0) return;
  receiver_({nullptr, AVMakeError(AVErrorUnknown, "The request was released without an answer"), false});
}

std::vector<CMPersistentTrackID> CompositionRequest::sourceTrackIDs() const {
  std::vector<CMPersistentTrackID> trackIDs;
  for (const Source& source : sources_) trackIDs.push_back(source.trackID);
  return trackIDs;
}

CVPixelBufferRef CompositionRequest::sourceFrameByTrackID(CMPersistentTrackID trackID) const {
  for (const Source& source : sources_) {
    if (source.trackID == trackID) return source.buffer;
  }
  return nullptr;
}

void CompositionRequest::finishWithComposedVideoFrame(const CVPixelBufferRef& composedVideoFrame) {
  if (composedVideoFrame) {
    finish({composedVideoFrame, std::nullopt});
  } else {
    finish({nullptr, AVMakeError(AVErrorUnknown, "The request was finished with a null frame")});
  }
}

void CompositionRequest::finishWithError(const NSError& error) { finish({nullptr, error}); }

void CompositionRequest::finishCancelledRequest() { finish({}); }

void CompositionRequest::finish(CompositionAnswer answer) {
  const int before = answers_++;
  if (before == 0) return receiver_(std::move(answer));
  if (before > 1) return;
  NSLog(NSStringWithFormat("The composition request of %.6f s was answered before; the new answer is dropped",
                           CMTimeGetSeconds(time_)));
}

}  // namespace vidloom
