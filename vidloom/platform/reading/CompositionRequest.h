#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVVideoCompositing.h"

namespace vidloom {

/// What a compositor made of a request: a buffer, an error, or neither where it cancelled the request.
struct CompositionAnswer {
  CVPixelBufferRef buffer;
  std::optional<NSError> error;
  bool isGiven = true;  ///< false: the request went away unanswered
};

/// One frame in the hands of a custom compositor. Passes its first answer on and drops the others, which it logs once; a request
/// that goes away unanswered counts as failed.
class CompositionRequest : public AVAsynchronousVideoCompositionRequest {
 public:
  struct Source {
    CMPersistentTrackID trackID;
    CVPixelBufferRef buffer;
  };
  /// Receives the answer, on the thread that gives it.
  using Receiver = std::function<void(CompositionAnswer)>;

  CompositionRequest(const CMTime& time, std::shared_ptr<const AVVideoCompositionRenderContext> context,
                     std::shared_ptr<AVVideoCompositionInstruction> instruction, std::vector<Source> sources, Receiver receiver);
  ~CompositionRequest() override;

  CMTime compositionTime() const override { return time_; }
  std::shared_ptr<const AVVideoCompositionRenderContext> renderContext() const override { return context_; }
  std::shared_ptr<AVVideoCompositionInstruction> videoCompositionInstruction() const override { return instruction_; }
  std::vector<CMPersistentTrackID> sourceTrackIDs() const override;
  CVPixelBufferRef sourceFrameByTrackID(CMPersistentTrackID trackID) const override;

  void finishWithComposedVideoFrame(const CVPixelBufferRef& composedVideoFrame) override;
  void finishWithError(const NSError& error) override;
  void finishCancelledRequest() override;

 private:
  void finish(CompositionAnswer answer);

  const CMTime time_;
  const std::shared_ptr<const AVVideoCompositionRenderContext> context_;
  const std::shared_ptr<AVVideoCompositionInstruction> instruction_;
  const std::vector<Source> sources_;
  const Receiver receiver_;
  std::atomic<int> answers_{0};
};

}  // namespace vidloom
