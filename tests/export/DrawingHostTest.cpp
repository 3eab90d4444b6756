// Exports whose host is late, contradicts itself, or never answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/export/ExportHost.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogCapture;
using Answer = SourceFrameDrawer::Answer;
using Endings = std::vector<std::string>;

struct Export {
  explicit Export(Answer answer, int frameCount = 12)
      : drawer(std::make_shared<SourceFrameDrawer>(answer)),
        render(LUMRender::initWithComposition(timelineOf({clip(frameCount)}), folder.movie())),
        host(render) {
    render->setAsyncDelegate(drawer);
  }
  OutputFolder folder;
  std::shared_ptr<SourceFrameDrawer> drawer;
  std::shared_ptr<LUMRender> render;
  Host host;
};

TEST(DrawingHost, EveryFrameArrivesOnceHoweverItIsAnswered) {
  for (const Answer answer : {Answer::frameOnMain, Answer::twice}) {
    LogCapture log;
    Export run(answer);
    run.render->generate();
    ASSERT_TRUE(run.host.waitForEnd());
    EXPECT_EQ(run.host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(testing::decodedFrameIndices(run.folder.movie()), indices(0, 12));
  }
}

TEST(DrawingHost, SixteenExportsShareAHostThatAnswersFromTheMainQueue) {
  std::vector<std::unique_ptr<Export>> runs;
  for (int i = 0; i < 16; ++i) runs.push_back(std::make_unique<Export>(Answer::frameOnMain));
  for (const auto& run : runs) run->render->generate();
  for (const auto& run : runs) {
    ASSERT_TRUE(run->host.waitForEnd());
    EXPECT_EQ(run->host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(testing::decodedFrameIndices(run->folder.movie()), indices(0, 12));
  }
}

TEST(DrawingHost, AFrameThatIsNeverAnsweredFailsTheExportAndLeavesNothing) {
  Export run(Answer::never);
  EXPECT_EQ(CMTimeCompare(run.render->drawTimeout(), CMTimeMake(10, 1)), 0);
  run.render->setDrawTimeout(CMTimeMake(1, 100));
  run.render->generate();
  const std::weak_ptr<AVAssetReader> reader = run.render->reader();
  ASSERT_TRUE(run.host.waitForEnd());
  EXPECT_EQ(run.host.endings, Endings{"failed"});
  const auto cause = run.host.error.underlyingError();
  ASSERT_TRUE(cause);
  EXPECT_EQ(cause->code(), AVErrorVideoCompositorFailed);
  EXPECT_NE(cause->localizedDescription().find("0.000000 s of the composition within 0.01 s"), std::string::npos) << *cause;
  EXPECT_THAT(run.folder.files(), IsEmpty());
  EXPECT_TRUE(spinUntil([&] { return reader.expired(); })) << "requests in the host's hands keep no reader";
  LogCapture log;
  run.drawer->finishHeld();
  EXPECT_TRUE(log.contains({"0.000000", "too late"}));
}

TEST(DrawingHost, AnotherExportCanFollowOneThatFailed) {
  Export run(Answer::never);
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
  EXPECT_EQ(testing::decodedFrameIndices(run.folder.movie()), indices(0, 12));
}

TEST(DrawingHost, LimitsThatMakeNoSenseAreRefused) {
  for (const CMTime& limit : {kCMTimeZero, CMTimeMake(-1, 1), kCMTimeInvalid, kCMTimeIndefinite}) {
    LogCapture log;
    Export run(Answer::frame);
    run.render->setDrawTimeout(limit);
    run.render->generate();
    ASSERT_TRUE(run.host.waitForEnd());
    EXPECT_EQ(run.host.endings, Endings{"completed movie.mp4"});
    EXPECT_TRUE(log.contains({"setCompositorTimeout", "above zero"}));
  }
}

/// Cancelled while the copy waits and the host holds all that it can; the host answers, in vain, at different moments.
TEST(DrawingHost, CancellingAgainstASilentHostEndsInOneCall) {
  for (const bool answersMeanwhile : {false, true}) {
    Export run(Answer::never);
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
    EXPECT_THAT(run.folder.files(), IsEmpty());
    EXPECT_TRUE(spinUntil([&] { return reader.expired(); }));
  }
}

}  // namespace
}  // namespace vidloom
