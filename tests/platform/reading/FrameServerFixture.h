// A frame server over fake media, with or without a custom compositor.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <numeric>
#include <vector>

#include "tests/platform/pixels/TestPictures.h"
#include "tests/platform/reading/FakeMedia.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/dispatch/DispatchClock.h"
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

inline PictureRef pictureOf(const CMSampleBufferRef& sample) {
  return CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample));
}
inline ServedFrames serveAll(SampleSource& source) {
  ServedFrames served;
  while (const CMSampleBufferRef sample = source.next(&served.error)) {
    served.numbers.push_back(frameNumber(*pictureOf(sample)));
    served.times.push_back(CMSampleBufferGetPresentationTimeStamp(sample));
  }
  return served;
}
inline int lumaAt(const CMSampleBufferRef& sample, int x, int y) { return test::sampleOf(*pictureOf(sample), 0, x, y); }
/// BGRA pixels of one grey.
inline CVPixelBufferRef greyBuffer(int width, int height, int luma) {
  return CVPixelBufferCreateWithPicture(test::flatPicture(width, height, luma, 128, 128), kCVPixelFormatType_32BGRA);
}

}  // namespace vidloom::testing

namespace vidloom {

using namespace testing;

inline std::vector<int> numbers(int first, int end) {
  std::vector<int> all(static_cast<size_t>(end - first));
  std::iota(all.begin(), all.end(), first);
  return all;
}

class FrameServerFixture : public ::testing::Test {
 protected:
  FrameServerFixture() {
    composition->setRenderSize({64, 36});
    composition->setFrameDuration(CMTimeMake(1, 30));
    setup.pixelFormat = kCVPixelFormatType_32BGRA;
    setup.opener = fakeVideoOpener(log);
    setup.range = {kCMTimeZero, seconds(1)};
  }
  ~FrameServerFixture() override {
    if (compositor) compositor->close();
    DispatchClock::setCurrent(nullptr);
  }

  CMPersistentTrackID addTrack(std::vector<MediaSegment> segments) {
    const auto id = static_cast<CMPersistentTrackID>(setup.videoTracks.size() + 1);
    setup.videoTracks.push_back(std::make_shared<FakeTrack>(id, AVMediaTypeVideo, std::move(segments)));
    return id;
  }
  CMPersistentTrackID addFilm(int64_t lengthSeconds = 10) {
    return addTrack({segment(film, kCMTimeZero, seconds(lengthSeconds), kCMTimeZero)});
  }
  static std::shared_ptr<AVMutableVideoCompositionLayerInstruction> layer(CMPersistentTrackID trackID) {
    auto layer = AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(nullptr);
    layer->setTrackID(trackID);
    return layer;
  }
  void show(CMTimeRange range, std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers) {
    const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
    instruction->setTimeRange(range);
    instruction->setLayerInstructions(std::move(layers));
    addInstruction(instruction);
  }
  void addInstruction(std::shared_ptr<AVVideoCompositionInstruction> instruction) {
    auto instructions = composition->instructions();
    instructions.push_back(std::move(instruction));
    composition->setInstructions(std::move(instructions));
  }
  void useCompositor(std::function<void(const RequestRef&)> script) {
    if (compositor) compositor->close();
    compositor = std::make_shared<ScriptedCompositor>(std::move(script));
    composition->setCustomVideoCompositorClass(scriptedClass());
  }
  /// A server for the custom compositor over one track and one instruction.
  std::shared_ptr<FrameServer> hostedServer(std::function<void(const RequestRef&)> script) {
    addFilm();
    addInstruction(std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(10)}));
    useCompositor(std::move(script));
    return server();
  }
  std::shared_ptr<FrameServer> server() {
    setup.composition = composition->copy();  // as outputs do: what was made before may still be read
    setup.compositor = compositor;
    std::optional<NSError> error;
    auto made = FrameServer::make(setup, &error);
    EXPECT_TRUE(made) << error.value_or(NSError{});
    return made;
  }
  static void echo(const RequestRef& request) {
    request->finishWithComposedVideoFrame(request->sourceFrameByTrackID(request->sourceTrackIDs().front()));
  }

  const std::shared_ptr<DecoderLog> log = std::make_shared<DecoderLog>();
  const std::shared_ptr<FakeFile> film = FakeFile::steadyVideo("film", 30, 1, 300);
  const std::shared_ptr<AVMutableVideoComposition> composition = AVMutableVideoComposition::videoComposition();
  const std::shared_ptr<HandDrivenClock> clock = HandDrivenClock::make();
  // What the compositor's functions keep: they may still run when a test ends.
  std::mutex mutex;
  std::vector<RequestRef> held;
  int count = 0;
  std::shared_ptr<ScriptedCompositor> compositor;
  FrameServer::Setup setup;
};

}  // namespace vidloom
