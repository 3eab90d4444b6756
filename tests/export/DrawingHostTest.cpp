// Exports whose host is late, contradicts itself, or never answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/export/ExportHost.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVVideoCompositionCoreAnimationTool.h"
#include "vidloom/platform/dispatch/DispatchClock.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::LogCapture;
using Answer = SourceFrameDrawer::Answer;
using Endings = std::vector<std::string>;

/// Time that passes only where a test says so.
struct DrivenTime {
  DrivenTime() { DispatchClock::setCurrent(clock); }
  ~DrivenTime() { DispatchClock::setCurrent(nullptr); }
  const std::shared_ptr<HandDrivenClock> clock = HandDrivenClock::make();
};

TEST(DrawingHost, EveryFrameArrivesOnceInSixteenExportsHoweverTheirHostAnswers) {
  std::vector<std::unique_ptr<Export>> runs;
  for (int i = 0; i < 16; ++i) {
    runs.push_back(std::make_unique<Export>(timelineOf({clip(12)}), i % 4 == 0 ? Answer::twice : Answer::frameOnMain));
    // A busy machine may need long for sixteen, and the main thread also looks at the movies.
    runs.back()->render->setDrawTimeout(kCMTimePositiveInfinity);
  }
  LogCapture log;  // of answers that came twice
  for (const auto& run : runs) run->render->generate();
  for (const auto& run : runs) {
    ASSERT_TRUE(run->host.waitForEnd());
    EXPECT_EQ(run->host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(testing::decodedFrameIndices(run->movie()), indices(0, 12));
  }
}

TEST(DrawingHost, AFrameThatIsNeverAnsweredFailsTheExportAndLeavesNothing) {
  const DrivenTime time;
  const LogCapture log;
  Export run(timelineOf({clip(12)}), Answer::never);
  run.render->setDrawTimeout(CMTimeMake(1, 100));
  run.render->generate();
  const std::weak_ptr<AVAssetReader> reader = run.render->reader();
  ASSERT_TRUE(spinUntil([&] { return run.drawer->heldCount() == 4; })) << "the host has the frames when their time runs out";
  time.clock->advance(10'000'000);
  ASSERT_TRUE(run.host.waitForEnd());
  EXPECT_EQ(run.host.endings, Endings{"failed"});
  EXPECT_TRUE(log.contains({"[LUMLog] LUMRender build failed with error: "}));
  const NSError cause = run.host.error.underlyingError().value_or(NSError{});
  EXPECT_EQ(cause.code(), AVErrorVideoCompositorFailed);
  EXPECT_THAT(cause.localizedDescription(), HasSubstr("0.000000 s of the composition within 0.01 s"));
  EXPECT_THAT(run.files(), IsEmpty());
  EXPECT_TRUE(spinUntil([&] { return reader.expired(); })) << "requests in the host's hands keep no reader";
  run.drawer->finishHeld();
  EXPECT_TRUE(log.contains({"0.000000", "too late"}));
}

TEST(DrawingHost, AnotherExportCanFollowOneThatFailed) {
  Export run(timelineOf({clip(12)}), Answer::never);
  run.render->setDrawTimeout(CMTimeMake(1, 100));
  run.render->generate();
  ASSERT_TRUE(run.host.waitForEnd());
  const auto answering = std::make_shared<SourceFrameDrawer>(Answer::frameLater);
  run.render->setAsyncDelegate(answering);
  run.render->setDrawTimeout(kCMTimePositiveInfinity);
  run.host.endings.clear();
  run.render->generate();
  run.drawer->finishHeld();
  ASSERT_TRUE(run.host.waitForEnd());
  EXPECT_EQ(run.host.endings, Endings{"completed movie.mp4"});
  EXPECT_EQ(testing::decodedFrameIndices(run.movie()), indices(0, 12));
}

TEST(DrawingHost, LimitsThatMakeNoSenseAreRefused) {
  for (const CMTime& limit : {kCMTimeZero, CMTimeMake(-1, 1), kCMTimeInvalid, kCMTimeIndefinite}) {
    LogCapture log;
    Export run(timelineOf({clip(12)}), Answer::frame);
    run.render->setDrawTimeout(limit);
    run.run();
    EXPECT_EQ(run.host.endings, Endings{"completed movie.mp4"});
    EXPECT_TRUE(log.contains({"setCompositorTimeout", "above zero"}));
  }
}

/// Cancelled while the copy waits and the host holds all that it can; the host answers, in vain, at different moments.
TEST(DrawingHost, CancellingAgainstASilentHostEndsInOneCall) {
  for (const bool answersMeanwhile : {false, true}) {
    Export run(timelineOf({clip(12)}), Answer::never);
    run.render->generate();
    const std::weak_ptr<AVAssetReader> reader = run.render->reader();
    ASSERT_TRUE(spinUntil([&] { return run.drawer->heldCount() == 4; }));
    LogCapture log;
    run.render->cancel();
    if (answersMeanwhile) run.drawer->finishHeld();
    ASSERT_TRUE(run.host.waitForEnd());
    run.drawer->finishHeld();
    drainMainQueue();
    EXPECT_EQ(run.host.endings, Endings{"cancelled"});
    EXPECT_FALSE(log.contains({"too late"}));
    EXPECT_THAT(run.files(), IsEmpty());
    EXPECT_TRUE(spinUntil([&] { return reader.expired(); }));
  }
}

// ---- the same pictures as without a host ----

/// Gives the source frame back, itself or its bytes.
class Copier : public LUMAVAsyncDrawDelegate {
 public:
  explicit Copier(bool copies) : copies_(copies) {}
  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>&) override {
    const CVPixelBufferRef source = request->sourceFrameByTrackID(request->sourceTrackIDs().front());
    if (!copies_) return request->finishWithComposedVideoFrame(source);
    const CVPixelBufferRef target = request->renderContext()->newPixelBuffer();
    CVPixelBufferLockBaseAddress(source, kCVPixelBufferLock_ReadOnly);
    CVPixelBufferLockBaseAddress(target, 0);
    for (size_t plane = 0; plane < 2; ++plane) {
      std::memcpy(CVPixelBufferGetBaseAddressOfPlane(target, plane), CVPixelBufferGetBaseAddressOfPlane(source, plane),
                  CVPixelBufferGetBytesPerRowOfPlane(source, plane) * CVPixelBufferGetHeightOfPlane(source, plane));
    }
    CVPixelBufferUnlockBaseAddress(target, 0);
    CVPixelBufferUnlockBaseAddress(source, kCVPixelBufferLock_ReadOnly);
    request->finishWithComposedVideoFrame(target);
  }

 private:
  const bool copies_;
};

/// The first frames as they go into an encoder; `drawer` null: made natively.
std::vector<PictureRef> firstFrames(const std::shared_ptr<LUMComposition>& timeline, const std::shared_ptr<Copier>& drawer) {
  const auto data =
      drawer ? LUMAVComposition::buildCompositionData(timeline) : LUMAVComposition::buildNativeCompositionData(timeline);
  if (drawer) {
    std::dynamic_pointer_cast<LUMAVCompositionInstruction>(data->videoComposition()->instructions().back())->setDelegate(drawer);
  }
  std::optional<NSError> error;
  const auto reader = AVAssetReader::initWithAsset(data->composition(), &error);
  const auto output = AVAssetReaderVideoCompositionOutput::initWithVideoTracks(
      data->composition()->tracksWithMediaType(AVMediaTypeVideo),
      NSDictionary{{kCVPixelBufferPixelFormatTypeKey, int64_t{kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}}});
  output->setVideoComposition(data->videoComposition());
  reader->addOutput(output);
  EXPECT_TRUE(reader->startReading());
  std::vector<PictureRef> frames;
  while (frames.size() < 8) {
    const auto sample = output->copyNextSampleBuffer();
    if (!sample) break;
    frames.push_back(CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample)));
  }
  EXPECT_EQ(frames.size(), 8u);
  reader->cancelReading();
  return frames;
}

/// How many samples differ, codes outside the limited range (if `clipped`) taken for the nearest within.
int differences(const Picture& a, const Picture& b, bool clipped) {
  int count = 0;
  const auto compare = [&](const PicturePlane& first, const PicturePlane& second, int width, int height, uint8_t maximum) {
    for (int i = 0; i < width * height; ++i) {
      const uint8_t code = first.data[i / width * first.stride + i % width];
      count += (clipped ? std::clamp<uint8_t>(code, 16, maximum) : code) != second.data[i / width * second.stride + i % width];
    }
  };
  compare(a.y, b.y, a.width, a.height, 235);
  compare(a.cb, b.cb, a.chromaWidth(), a.chromaHeight(), 240);
  compare(a.cr, b.cr, a.chromaWidth(), a.chromaHeight(), 240);
  return count;
}

TEST(DrawingHost, DrawsTheSameCodesAsTheNativeCompositorWithinTheLimitedRange) {
  const auto film = std::filesystem::path(VIDLOOM_TEST_DATA) / "../../examples/demo/stream.mp4";
  const auto asset = AVAsset::assetWithURL(film);
  const auto timeline = timelineOf({asset}, asset->tracksWithMediaType(AVMediaTypeVideo).front()->naturalSize());
  const auto native = firstFrames(timeline, nullptr);
  const auto copied = firstFrames(timeline, std::make_shared<Copier>(true));
  const auto untouched = firstFrames(timeline, std::make_shared<Copier>(false));
  for (size_t i = 0; i < native.size(); ++i) {
    EXPECT_EQ(differences(*native[i], *copied[i], true), 0) << i;
    EXPECT_EQ(differences(*native[i], *untouched[i], false), 0) << i;
  }
}

TEST(LayerTool, IsDrawnOverNativeExportsAndLeftOutWhereTheHostDraws) {
  const auto timeline = timelineOf({clip(12)});
  const auto root = CALayer::layer(), video = CALayer::layer(), logo = CALayer::layer();
  root->setFrame(CGRectMake(0, 0, 320, 180));
  video->setFrame(root->frame());
  logo->setFrame(CGRectMake(300, 4, 16, 16));
  const std::shared_ptr<uint8_t> white(new uint8_t[4]{255, 255, 255, 255}, std::default_delete<uint8_t[]>());
  logo->setContents(CGImageCreate(1, 1, 4, white, kCGImageAlphaFirst, nullptr));
  root->addSublayer(video);
  root->addSublayer(logo);
  timeline->setCoreAnimationTool(
      AVVideoCompositionCoreAnimationTool::videoCompositionCoreAnimationToolWithPostProcessingAsVideoLayer(video, root));
  const auto plain = firstFrames(timelineOf({clip(12)}), nullptr);
  const auto drawn = firstFrames(timeline, nullptr);
  const auto byHost = firstFrames(timeline, std::make_shared<Copier>(false));
  for (size_t i = 0; i < drawn.size(); ++i) {
    EXPECT_EQ(drawn[i]->y.data[(180 - 12) * drawn[i]->y.stride + 308], 235);
    EXPECT_LE(differences(*plain[i], *drawn[i], false), 16 * 16 + 2 * 8 * 8) << "nothing but the logo";
    EXPECT_EQ(differences(*plain[i], *byHost[i], false), 0);
  }
}

}  // namespace
}  // namespace vidloom
