// What the tests of frame servers share.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "tests/platform/reading/FakeMedia.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/FrameServer.h"

namespace vidloom::testing {

using RequestRef = std::shared_ptr<AVAsynchronousVideoCompositionRequest>;

/// A compositor that hands every request to a function.
class ScriptedCompositor : public AVVideoCompositing {
 public:
  explicit ScriptedCompositor(std::function<void(const RequestRef&)> script, OSType format = kCVPixelFormatType_32BGRA)
      : script_(std::move(script)), format_(format) {}
  NSDictionary sourcePixelBufferAttributes() const override { return attributes(); }
  NSDictionary requiredPixelBufferAttributesForRenderContext() const override { return attributes(); }
  void renderContextChanged(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) override { context_ = context; }
  void startVideoCompositionRequest(const RequestRef& request) override {
    const std::lock_guard lock(mutex_);
    if (!isClosed_) script_(request);
  }
  void cancelAllPendingVideoCompositionRequests() override { dispatch_semaphore_signal(cancelled_); }

  /// The function is not called any more.
  void close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
  }

  const dispatch_semaphore_t cancelled_ = dispatch_semaphore_create(0);
  std::shared_ptr<const AVVideoCompositionRenderContext> context_;

 private:
  NSDictionary attributes() const { return {{kCVPixelBufferPixelFormatTypeKey, static_cast<int64_t>(format_)}}; }
  const std::function<void(const RequestRef&)> script_;
  const OSType format_;
  std::mutex mutex_;
  bool isClosed_ = false;
};

/// A class that names no instance of its own: frame servers are given the instance apart.
inline AVVideoCompositingClass scriptedClass() {
  return {"ScriptedCompositor", [] { return nullptr; }};
}

/// An instruction of the kind that only custom compositors know.
class PlainInstruction : public AVVideoCompositionInstruction {
 public:
  explicit PlainInstruction(CMTimeRange range) : range_(range) {}
  CMTimeRange timeRange() const override { return range_; }
  std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const override { return required_; }
  CMPersistentTrackID passthroughTrackID() const override { return passthrough_; }
  std::optional<std::vector<CMPersistentTrackID>> required_;
  CMPersistentTrackID passthrough_ = kCMPersistentTrackID_Invalid;

 private:
  const CMTimeRange range_;
};

/// The numbers of all frames that come, -1 for those that are no picture of a FakeFile, and their times.
struct ServedFrames {
  std::vector<int> numbers;
  std::vector<CMTime> times;
  std::optional<NSError> error;
};
ServedFrames serveAll(SampleSource& source);

}  // namespace vidloom::testing
