// The frames of a video composition, in order of time.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/reading/DecoderPool.h"

namespace vidloom {

/// Decodes ahead on a queue of its own, has frames composed by the built-in compositor (on the thread that pulls) or by a custom
/// one (several requests at a time, answered in any order from any thread), and hands them on in order. A fixed number of frames
/// is under way at any time. The frames depend on nothing but the composition.
class FrameServer : public SampleSource {
 public:
  struct Setup {
    std::vector<std::shared_ptr<AVAssetTrack>> videoTracks;
    std::shared_ptr<const AVMutableVideoComposition> composition;  ///< not changed any more
    std::shared_ptr<AVVideoCompositing> compositor;                ///< null: the built-in one
    OSType pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    CMTimeRange range;  ///< numeric
    size_t framesUnderWay = 4;
    /// How long a frame waits, without an answer to any request, before reading fails: of the dispatch clock.
    uint64_t answerTimeoutNs = 10'000'000'000;
    VideoDecoderPool::Opener opener = openVideoDecoders();
  };
  /// Null with an error where the compositor names no pixel format or one that cannot be had, or where the size is not positive.
  static std::shared_ptr<FrameServer> make(Setup setup, std::optional<NSError>* error);
  ~FrameServer() override;

  CMSampleBufferRef next(std::optional<NSError>* error) override;
  void cancel() override;

 private:
  class State;
  explicit FrameServer(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};

}  // namespace vidloom
