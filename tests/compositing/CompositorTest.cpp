#include <gtest/gtest.h>

#include <atomic>

#include "tests/compositing/Timelines.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/timeline/LUMRenderSettings.h"

namespace vidloom {
namespace {

class FakeRequest : public AVAsynchronousVideoCompositionRequest {
 public:
  explicit FakeRequest(std::shared_ptr<AVVideoCompositionInstruction> instruction) : instruction_(std::move(instruction)) {}
  CMTime compositionTime() const override { return kCMTimeZero; }
  std::shared_ptr<const AVVideoCompositionRenderContext> renderContext() const override { return nullptr; }
  std::shared_ptr<AVVideoCompositionInstruction> videoCompositionInstruction() const override { return instruction_; }
  std::vector<CMPersistentTrackID> sourceTrackIDs() const override { return {}; }
  CVPixelBufferRef sourceFrameByTrackID(CMPersistentTrackID) const override { return nullptr; }
  void finishWithComposedVideoFrame(const CVPixelBufferRef&) override { ending = "frame"; }
  void finishWithError(const NSError& given) override {
    error = given;
    ending = "error";
  }
  void finishCancelledRequest() override { ending = "cancelled"; }

  std::string ending;
  NSError error;

 private:
  std::shared_ptr<AVVideoCompositionInstruction> instruction_;
};

struct Drawer : LUMAVAsyncDrawDelegate {
  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>&) override {
    request->finishWithComposedVideoFrame(nullptr);
  }
};

class Compositor : public ::testing::Test {
 protected:
  std::shared_ptr<FakeRequest> start() {
    auto request = std::make_shared<FakeRequest>(instruction);
    compositor->startVideoCompositionRequest(request);
    return request;
  }
  void drain() {
    dispatch_sync(compositor->renderingQueue(), [] {});
  }
  std::shared_ptr<LUMAVComposition> compositor = LUMAVComposition::init();
  std::shared_ptr<LUMAVCompositionInstruction> instruction = LUMAVCompositionInstruction::initWithComposition(timelineOf({}));
};

TEST_F(Compositor, FailsRequestsWithoutADelegate) {
  testing::LogCapture log;
  instruction->setDelegate(std::make_shared<Drawer>());  // gone at once
  const auto request = start();
  drain();
  EXPECT_EQ(request->ending, "error");
  EXPECT_EQ(request->error.code(), 202);
  EXPECT_EQ(request->error.localizedDescription(), "Please implement LUMAVAsyncDrawDelegate delegate");
  EXPECT_TRUE(log.contains({"[LUMLog] Please implement LUMAVAsyncDrawDelegate delegate"}));
  const auto foreign = std::make_shared<FakeRequest>(AVMutableVideoCompositionInstruction::videoCompositionInstruction());
  compositor->startVideoCompositionRequest(foreign);
  drain();
  EXPECT_EQ(dispatch_queue_get_label(compositor->renderingQueue()), "corvane.compositor_serial_queue");
  EXPECT_EQ(foreign->ending, "error") << "an instruction of another kind";
}

TEST_F(Compositor, CancelsWhatIsQueuedAndServesWhatComesAfterOrWhatItLeavesBehind) {
  for (const bool released : {false, true}) {
    compositor = LUMAVComposition::init();
    const auto drawer = std::make_shared<Drawer>();
    instruction->setDelegate(drawer);
    const auto queue = compositor->renderingQueue();
    const auto gate = dispatch_semaphore_create(0);
    dispatch_async(queue, [gate] { dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER); });
    const auto queued = start();
    compositor->cancelAllPendingVideoCompositionRequests();
    EXPECT_TRUE(compositor->shouldCancelAllRequests());
    const auto later = start();
    if (released) compositor.reset();
    dispatch_semaphore_signal(gate);
    dispatch_sync(queue, [] {});
    EXPECT_EQ(queued->ending, released ? "frame" : "cancelled");
    EXPECT_EQ(later->ending, "frame");
    EXPECT_FALSE(compositor && compositor->shouldCancelAllRequests());
  }
}

TEST_F(Compositor, AsksForTheFormatOfTheSettings) {
  const auto settings = LUMRenderSettings::shared();
  for (const bool yCbCr : {true, false}) {
    settings->setIsYCbCrPixelFormatSupported(yCbCr);
    for (const auto& attributes :
         {compositor->sourcePixelBufferAttributes(), compositor->requiredPixelBufferAttributesForRenderContext()}) {
      double format = 0;
      ASSERT_TRUE(numberValue(attributes, kCVPixelBufferPixelFormatTypeKey, format));
      EXPECT_EQ(format, yCbCr ? 0x34323066 : 0x42475241);
      EXPECT_EQ(attributes.size(), 3u);
    }
  }
  settings->setIsYCbCrPixelFormatSupported(true);
}

}  // namespace
}  // namespace vidloom
