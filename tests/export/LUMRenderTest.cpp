#include "vidloom/export/LUMRender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>

#include "tests/export/ExportHost.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogCapture;
using Answer = SourceFrameDrawer::Answer;
using Phase = LUMRenderStatistics::Phase;
using Endings = std::vector<std::string>;

std::shared_ptr<LUMRender> nativeRender(const std::shared_ptr<LUMComposition>& composition, const std::filesystem::path& url) {
  auto render = LUMRender::initWithComposition(composition, url);
  render->setUseNativeComposition(true);
  return render;
}

TEST(LUMRender, WritesEveryFrameInEitherModeAndLetsGoOfItsParts) {
  const struct {
    bool native;
    Answer answer;
  } rows[] = {{true, Answer::frame}, {false, Answer::frame}, {false, Answer::frameLater}};
  for (const auto& row : rows) {
    OutputFolder folder;
    const auto render = LUMRender::initWithComposition(timelineOf({clip(30, 1.0)}), folder.movie());
    const auto drawer = std::make_shared<SourceFrameDrawer>(row.answer);
    render->setUseNativeComposition(row.native);
    render->setAsyncDelegate(drawer);
    Host host(render);
    render->generate();
    EXPECT_EQ(render->setUpError(), std::nullopt);
    ASSERT_TRUE(host.waitForEnd());
    EXPECT_EQ(host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCompleted);
    EXPECT_EQ(testing::decodedFrameIndices(folder.movie()), indices(0, 30));
    EXPECT_THAT(folder.files(), ElementsAre("movie.mp4"));
    EXPECT_EQ(render->reader(), nullptr);
    EXPECT_EQ(render->writer(), nullptr);
    EXPECT_EQ(render->videoInput(), nullptr);
    EXPECT_EQ(render->audioInput(), nullptr);
    EXPECT_EQ(render->readerVideoCompositionOutput(), nullptr);
    EXPECT_EQ(render->readerAudioMixOutput(), nullptr);
    EXPECT_EQ(render->compositionData(), nullptr);
    EXPECT_NE(render->renderer_queue(), nullptr);
  }
}

TEST(LUMRender, CountsProgressOverBothStreams) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(30, 1.0)}), folder.movie());
  Host host(render);
  render->generate();
  EXPECT_NEAR(render->progress()->totalCount(), 2.0, 0.03);
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_TRUE(std::is_sorted(host.percents.begin(), host.percents.end()));
  // Both streams count up to where their last sample begins.
  EXPECT_EQ(CMTimeCompare(render->lastVideoTimestamp(), CMTimeMake(29, 30)), 0);
  EXPECT_GT(CMTimeGetSeconds(render->lastAudioTimestamp()), 0.7);
  const double counted = 29.0 / 30 + CMTimeGetSeconds(render->lastAudioTimestamp());
  EXPECT_NEAR(host.percents.back(), counted * 100 / render->progress()->totalCount(), 1e-6);
  const auto statistics = render->statistics();
  EXPECT_EQ(statistics.phase, Phase::done);
  EXPECT_EQ(statistics.video.frameCount, 30);
  EXPECT_NEAR(static_cast<double>(statistics.audio.frameCount), 44100.0, 1100.0);
  EXPECT_EQ(CMTimeCompare(statistics.video.mediaTime, CMTimeMake(1, 1)), 0);
}

TEST(LUMRender, TakesTheEndOfThePictureAsTotalWhereThereIsNoSound) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(30)}), folder.movie());
  Host host(render);
  render->generate();
  EXPECT_EQ(render->progress()->totalCount(), 1.0);
  EXPECT_EQ(render->readerAudioMixOutput(), nullptr);
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.percents.size(), 30u);
  EXPECT_TRUE(testing::decodedSound(folder.movie()).empty());
}

TEST(LUMRender, ExportsARangeWithItsFirstStepCountingFromZero) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(60)}), folder.movie());
  render->setTimeRange(CMTimeRangeMake(CMTimeMake(1, 1), CMTimeMake(1, 2)));
  render->setSessionStart(CMTimeMake(1, 1));
  Host host(render);
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_GE(host.percents.front(), 50.0);
  EXPECT_NEAR(host.percents.back(), (1.5 - 1.0 / 30) * 50, 1e-9);
  EXPECT_EQ(testing::decodedFrameIndices(folder.movie()), indices(30, 15));
  EXPECT_NEAR(CMTimeGetSeconds(AVAsset::assetWithURL(folder.movie())->duration()), 0.5, 1e-3);
}

TEST(LUMRender, BeginsTheMovieAtZeroUnlessToldOtherwise) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(60)}), folder.movie());
  render->setTimeRange(CMTimeRangeMake(CMTimeMake(1, 1), CMTimeMake(1, 2)));
  Host host(render);
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_NEAR(CMTimeGetSeconds(AVAsset::assetWithURL(folder.movie())->duration()), 1.5, 1e-3);
}

TEST(LUMRender, ReplacesAFileAndSaysWhenThereWasNone) {
  OutputFolder folder;
  LogCapture log;
  const auto composition = timelineOf({clip(3)});
  for (int round = 0; round < 2; ++round) {
    const auto render = nativeRender(composition, folder.movie());
    Host host(render);
    render->generate();
    ASSERT_TRUE(host.waitForEnd());
    EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCompleted);
  }
  const auto lines = log.lines();
  EXPECT_EQ(
      std::count_if(lines.begin(), lines.end(),
                    [](const auto& line) { return line.find("LUMRender cannot clean file from url: ") != std::string::npos; }),
      1);
}

TEST(LUMRender, UsesDataThatWasBuiltBeforeAndCanRunAgain) {
  OutputFolder folder;
  const auto composition = timelineOf({clip(5)});
  const auto data = LUMAVComposition::buildNativeCompositionData(composition);
  const auto render = LUMRender::initWithData(data, composition, folder.movie());
  for (int round = 0; round < 2; ++round) {
    Host host(render);
    render->generate();
    ASSERT_TRUE(host.waitForEnd());
    EXPECT_EQ(host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(host.percents.size(), 5u);
  }
  EXPECT_EQ(render->compositionData(), data);
}

TEST(LUMRender, CleansForADelegateThatImplementsNothingAndForNone) {
  for (const auto& delegate : {std::make_shared<LUMRenderDelegate>(), std::shared_ptr<LUMRenderDelegate>()}) {
    for (const Answer answer : {Answer::frame, Answer::error}) {
      OutputFolder folder;
      const auto drawer = std::make_shared<SourceFrameDrawer>(answer);
      const auto render = LUMRender::initWithComposition(timelineOf({clip(3)}), folder.movie());
      render->setDelegate(delegate);
      render->setAsyncDelegate(drawer);
      LogCapture log;
      render->generate();
      ASSERT_TRUE(runUntil([&] { return !render->serial_queue(); }));
      EXPECT_EQ(render->statistics().phase, Phase::done);
      EXPECT_EQ(folder.files().empty(), answer == Answer::error);
      EXPECT_FALSE(log.contains({"LUMRender build failed"}));
    }
  }
}

// ---- set-up that stops ----

struct Stop {
  const char* what;
  std::shared_ptr<LUMAVCompositionData> data;
  std::shared_ptr<LUMComposition> composition;
  std::filesystem::path url;
  const char* line;
  bool underlying;
};

TEST(LUMRenderSetUp, StopsWithOneLineAndKeepsTheReason) {
  OutputFolder folder;
  const auto good = timelineOf({clip(3)});
  const auto flat = timelineOf({clip(3)}, {0, 180});
  const auto goodData = LUMAVComposition::buildNativeCompositionData(good);
  const auto withoutLayout = LUMAVCompositionData::initWithVideoComposition(goodData->videoComposition(), nullptr, nullptr);
  const auto withoutVideo = LUMAVCompositionData::initWithVideoComposition(nullptr, goodData->composition(), nullptr);
  const Stop rows[] = {
      {"no url", nullptr, good, {}, "LUMRender fileURL is NULL", false},
      {"no layout", withoutLayout, good, folder.movie(), "LUMRender cannot create AVAssetReader with error: ", true},
      {"nothing to show", nullptr, timelineOf({}), folder.movie(), "LUMRender video tracks is empty.", false},
      {"no timeline", nullptr, nullptr, folder.movie(), "LUMRender video tracks is empty.", false},
      {"no width", goodData, flat, folder.movie(), "LUMRender cannot add AVAssetWriterInput(AVMediaTypeVideo) in AVAssetWritter",
       false},
      {"no video composition", withoutVideo, good, folder.movie(),
       "Cannot start AVAssetWritter or AVAssetReader reader: 1  writer: 0", true},
  };
  for (const Stop& row : rows) {
    SCOPED_TRACE(row.what);
    LogCapture log;
    const auto render = LUMRender::initWithData(row.data, row.composition, row.url);
    render->setUseNativeComposition(true);
    Host host(render);
    render->generate();
    drainMainQueue();
    EXPECT_TRUE(log.contains({std::string("[LUMLog] ") + row.line})) << ::testing::PrintToString(log.lines());
    ASSERT_TRUE(render->setUpError());
    EXPECT_EQ(render->setUpError()->domain(), "LUMRender");
    EXPECT_EQ(render->setUpError()->code(), -1);
    EXPECT_EQ(render->setUpError()->localizedDescription().rfind(row.line, 0), 0u);
    EXPECT_EQ(render->setUpError()->underlyingError().has_value(), row.underlying);
    EXPECT_THAT(host.endings, IsEmpty());
    EXPECT_EQ(render->statistics().phase, Phase::done);
    render->clean();
    EXPECT_THAT(folder.files(), IsEmpty());
  }
}

TEST(LUMRenderSetUp, ReportsAWriterThatCannotBeMadeAtOnceAndDoesNotClean) {
  LogCapture log;
  const auto render = nativeRender(timelineOf({clip(3)}), testing::scratchFolder() / "no such folder" / "movie.mp4");
  Host host(render);
  render->generate();
  EXPECT_EQ(host.endings, Endings{"failed"});
  EXPECT_EQ(host.error.domain(), AVFoundationErrorDomain);
  EXPECT_TRUE(log.contains({"LUMRender cannot create AVAssetWriter with error " + host.error.localizedDescription()}));
  EXPECT_NE(render->serial_queue(), nullptr);
  ASSERT_TRUE(render->setUpError());
  EXPECT_EQ(render->setUpError()->underlyingError()->code(), host.error.code());
}

TEST(LUMRenderSetUp, KeepsAFolderThatStandsWhereTheMovieShouldGo) {
  OutputFolder folder;
  std::filesystem::create_directories(folder.movie() / "inside");
  const auto render = nativeRender(timelineOf({clip(3)}), folder.movie());
  Host host(render);
  render->generate();
  EXPECT_TRUE(render->setUpError());
  EXPECT_TRUE(std::filesystem::exists(folder.movie() / "inside"));
}

// ---- failures while running ----

TEST(LUMRender, TellsWhyReadingFailed) {
  OutputFolder folder;
  LogCapture log;
  const auto drawer = std::make_shared<SourceFrameDrawer>(Answer::error);
  const auto render = LUMRender::initWithComposition(timelineOf({clip(30, 1.0)}), folder.movie());
  render->setAsyncDelegate(drawer);
  Host host(render);
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.endings, Endings{"failed"});
  EXPECT_EQ(host.error.domain(), "LUMRender");
  EXPECT_EQ(host.error.code(), -1);
  EXPECT_EQ(host.error.localizedDescription(), "");
  ASSERT_TRUE(host.error.underlyingError());
  EXPECT_EQ(host.error.underlyingError()->code(), AVErrorVideoCompositorFailed);
  EXPECT_TRUE(log.contains({"[LUMLog] LUMRender build failed with error: "}));
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(LUMRender, FailsWithoutSomebodyWhoDraws) {
  OutputFolder folder;
  LogCapture log;
  const auto render = LUMRender::initWithComposition(timelineOf({clip(3)}), folder.movie());
  Host host(render);
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.endings, Endings{"failed"});
  EXPECT_TRUE(log.contains({"Please implement LUMAVAsyncDrawDelegate delegate"}));
}

TEST(LUMRender, LetsTheHostSeeThatTheFileCouldNotBeCompleted) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(30, 1.0)}), folder.movie());
  Host host(render);
  host.listener->renderDidUpdateProgress = [&](double) { std::filesystem::create_directories(folder.movie() / "in the way"); };
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.endings, Endings{"completed movie.mp4"});
  EXPECT_EQ(host.writerStatus, AVAssetWriterStatusFailed);
  ASSERT_TRUE(host.writerError);
  EXPECT_NE(host.writerError->localizedDescription().find("movie.mp4"), std::string::npos);
  EXPECT_THAT(folder.files(), ElementsAre("movie.mp4"));  // the folder that was in the way
}

/// Files may not grow beyond that size while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t byteCount) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{byteCount, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

TEST(LUMRender, SaysThatTheDiskIsFullAndLeavesNothing) {
  OutputFolder folder;
  const auto composition = timelineOf({clip(30, 1.0)});
  const auto render = nativeRender(composition, folder.movie());
  Host host(render);
  {
    const FileSizeLimit limit(4096);
    render->generate();
    ASSERT_TRUE(host.waitForEnd());
  }
  EXPECT_EQ(host.endings.size(), 1u);
  EXPECT_EQ(host.writerStatus, AVAssetWriterStatusFailed);
  ASSERT_TRUE(host.writerError);
  EXPECT_EQ(host.writerError->domain(), AVFoundationErrorDomain);
  EXPECT_TRUE(host.writerError->underlyingError());
  EXPECT_THAT(folder.files(), IsEmpty());
}

// ---- cancellation ----

TEST(LUMRenderCancel, ReportsItselfBeforeTheStartAndAfterTheEnd) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(3)}), folder.movie());
  Host host(render);
  render->cancel();
  EXPECT_EQ(host.endings, Endings{"cancelled"});
  EXPECT_FALSE(render->cancel_period());
  host.endings.clear();
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  render->cancel();
  EXPECT_EQ(host.endings, (Endings{"completed movie.mp4", "cancelled"}));
  EXPECT_THAT(folder.files(), ElementsAre("movie.mp4"));
}

TEST(LUMRenderCancel, EndsARunningExportOnceAndLeavesNothing) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(300, 10.0)}), folder.movie());
  Host host(render);
  host.listener->renderDidUpdateProgress = [&](double) {
    render->cancel();
    render->cancel();
  };
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  drainMainQueue();
  EXPECT_EQ(host.endings, Endings{"cancelled"});
  EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCancelled);
  EXPECT_FALSE(render->cancel_period());
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(LUMRenderCancel, WakesACopyThatWaitsForTheHost) {
  OutputFolder folder;
  const auto drawer = std::make_shared<SourceFrameDrawer>(Answer::never);
  const auto render = LUMRender::initWithComposition(timelineOf({clip(30, 1.0)}), folder.movie());
  render->setAsyncDelegate(drawer);
  Host host(render);
  render->generate();
  ASSERT_TRUE(spinUntil([&] { return drawer->heldCount() > 0; }));
  render->cancel();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.endings, Endings{"cancelled"});
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(LUMRenderCancel, DuringSetUpIsReportedOnceAndStopsIt) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(30, 1.0)}), folder.movie());
  Host host(render);
  const NSLogSink previous =
      NSLogSetSink([&](const std::string& line) {  // the line about the missing file comes from within generate()
        if (line.find("cannot clean") != std::string::npos) {
          render->cancel();
          render->cancel();
        }
      });
  render->generate();
  NSLogSetSink(previous);
  drainMainQueue();
  EXPECT_EQ(host.endings, Endings{"cancelled"});
  ASSERT_TRUE(render->setUpError());
  EXPECT_EQ(render->setUpError()->underlyingError()->code(), AVErrorOperationCancelled);
  EXPECT_EQ(render->serial_queue(), nullptr);
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(LUMRenderCancel, WhileTheFileIsBeingCompletedEndsInOneCall) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(60, 2.0)}), folder.movie());
  Host host(render);
  render->generate();
  ASSERT_TRUE(spinUntil([&] { return render->statistics().phase == Phase::finish || !host.endings.empty(); }));
  if (host.endings.empty()) render->cancel();
  ASSERT_TRUE(host.waitForEnd());
  drainMainQueue();
  ASSERT_EQ(host.endings.size(), 1u);
  const bool written = host.writerStatus == AVAssetWriterStatusCompleted;
  EXPECT_EQ(folder.files().size(), written ? 1u : 0u);
}

/// Round n cancels from another thread when n samples have been reported; round 0 races with generate().
TEST(LUMRenderCancel, AtAnyMomentFromAnyThreadLeavesNothingRunning) {
  const auto composition = timelineOf({clip(20, 0.7)});
  const auto canceller = dispatch_queue_create("canceller", DISPATCH_QUEUE_SERIAL);
  for (int round = 0; round < 24; ++round) {
    OutputFolder folder;
    const auto drawer = std::make_shared<SourceFrameDrawer>(Answer::frameLater);
    const auto render = LUMRender::initWithComposition(composition, folder.movie());
    render->setUseNativeComposition(round % 2 == 0);
    render->setAsyncDelegate(drawer);
    Host host(render);
    const auto cancel = [&] { dispatch_async(canceller, [render] { render->cancel(); }); };
    int sampleCount = 0;
    host.listener->renderDidUpdateProgress = [&](double) {
      if (++sampleCount == round) cancel();
    };
    std::atomic<int> cancellations{0};
    host.listener->renderDidCancelRendering = [&] { ++cancellations; };
    if (round == 0) cancel();
    render->generate();
    ASSERT_TRUE(spinUntil([&] { return (cancellations > 0 || !host.endings.empty()) && !render->serial_queue(); })) << round;
    dispatch_sync(canceller, [] {});
    drainMainQueue();
    EXPECT_THAT(host.endings, ::testing::Each("completed movie.mp4")) << round;
    EXPECT_LE(cancellations, 1) << round;
    EXPECT_EQ(folder.files().empty(), host.writerStatus != AVAssetWriterStatusCompleted) << round;
  }
}

// ---- release ----

TEST(LUMRenderRelease, EndsTheExportAndLeavesNothing) {
  for (const Answer answer : {Answer::frameLater, Answer::never}) {
    OutputFolder folder;
    const auto drawer = std::make_shared<SourceFrameDrawer>(answer);
    auto render = LUMRender::initWithComposition(timelineOf({clip(300, 10.0)}), folder.movie());
    render->setAsyncDelegate(drawer);
    auto host = std::make_unique<Host>(render);
    render->generate();
    const std::weak_ptr<LUMRender> released = render;
    const std::weak_ptr<AVAssetWriter> writer = render->writer();
    const std::weak_ptr<AVAssetReader> reader = render->reader();
    ASSERT_TRUE(spinUntil([&] { return drawer->heldCount() > 0 || render->statistics().video.frameCount > 3; }));
    render.reset();
    ASSERT_TRUE(spinUntil([&] { return released.expired() && writer.expired() && reader.expired(); }));
    drainMainQueue();
    EXPECT_THAT(host->endings, IsEmpty());
    EXPECT_THAT(folder.files(), IsEmpty());
  }
}

TEST(LUMRenderRelease, LetsGoOfEverythingAfterAnExport) {
  OutputFolder folder;
  auto composition = timelineOf({clip(5, 0.2)});
  auto render = nativeRender(composition, folder.movie());
  Host host(render);
  render->generate();
  const std::weak_ptr<AVAssetWriter> writer = render->writer();
  const std::weak_ptr<AVAssetReader> reader = render->reader();
  ASSERT_TRUE(host.waitForEnd());
  const std::weak_ptr<LUMRender> released = render;
  const std::weak_ptr<LUMComposition> timeline = composition;
  render.reset();
  composition.reset();
  EXPECT_TRUE(spinUntil([&] { return released.expired() && timeline.expired() && writer.expired() && reader.expired(); }));
}

TEST(LUMRender, NamesItsQueues) {
  OutputFolder folder;
  const auto render = nativeRender(timelineOf({clip(3)}), folder.movie());
  const auto attributes = dispatch_queue_get_attributes(render->renderer_queue());
  EXPECT_EQ(dispatch_queue_get_label(render->renderer_queue()), "corvane.renderer.queue");
  EXPECT_TRUE(attributes.concurrent);
  EXPECT_EQ(attributes.relativePriority, 2);
  EXPECT_EQ(render->serial_queue(), nullptr);
  Host host(render);
  render->generate();
  EXPECT_EQ(dispatch_queue_get_label(render->serial_queue()), "corvane.renderer.queue.serial");
  ASSERT_TRUE(host.waitForEnd());
}

}  // namespace
}  // namespace vidloom
