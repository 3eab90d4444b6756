#include "vidloom/export/LUMRender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "tests/export/ExportHost.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::LogCapture;
using Answer = SourceFrameDrawer::Answer;
using Phase = LUMRenderStatistics::Phase;
using Endings = std::vector<std::string>;

TEST(LUMRender, WritesEveryFrameInEitherModeAndLetsGoOfItsParts) {
  for (const Export::Answer answer : {Export::Answer{}, Export::Answer{Answer::frame}, Export::Answer{Answer::frameLater}}) {
    Export movie(timelineOf({clip(30, 1.0)}), answer);
    movie.run();
    EXPECT_EQ(movie.host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(movie.host.writerStatus, AVAssetWriterStatusCompleted);
    EXPECT_EQ(testing::decodedFrameIndices(movie.movie()), indices(0, 30));
    EXPECT_THAT(movie.files(), ElementsAre("movie.mp4"));
    EXPECT_EQ(movie.render->reader(), nullptr);
    EXPECT_EQ(movie.render->writer(), nullptr);
    EXPECT_EQ(movie.render->compositionData(), nullptr);
  }
}

TEST(LUMRender, CountsProgressOverBothStreams) {
  Export movie(timelineOf({clip(30, 1.0)}));
  Host& host = movie.host;
  const auto& render = movie.render;
  movie.run();
  EXPECT_NEAR(render->progress()->totalCount(), 2.0, 0.03);
  EXPECT_TRUE(std::is_sorted(host.percents.begin(), host.percents.end()));
  // Both streams count up to where their last sample begins.
  EXPECT_EQ(CMTimeCompare(render->lastVideoTimestamp(), CMTimeMake(29, 30)), 0);
  EXPECT_GT(CMTimeGetSeconds(render->lastAudioTimestamp()), 0.7);
  const double counted = 29.0 / 30 + CMTimeGetSeconds(render->lastAudioTimestamp());
  EXPECT_NEAR(host.percents.back(), counted * 100 / render->progress()->totalCount(), 1e-6);
  const auto statistics = render->statistics();
  EXPECT_EQ(statistics.video.frameCount, 30);
  EXPECT_NEAR(static_cast<double>(statistics.audio.frameCount), 44100.0, 1100.0);
  EXPECT_EQ(CMTimeCompare(statistics.video.mediaTime, CMTimeMake(1, 1)), 0);
}

TEST(LUMRender, ExportsARangeThatBeginsAtTheSessionsStart) {
  for (const bool sessionAtRange : {true, false}) {
    Export movie(timelineOf({clip(60)}));
    movie.render->setTimeRange(CMTimeRangeMake(CMTimeMake(1, 1), CMTimeMake(1, 2)));
    if (sessionAtRange) movie.render->setSessionStart(CMTimeMake(1, 1));
    movie.run();
    EXPECT_GE(movie.host.percents.front(), 50.0) << "the first step counts from zero";
    EXPECT_NEAR(movie.host.percents.back(), (1.5 - 1.0 / 30) * 50, 1e-9);
    EXPECT_EQ(testing::decodedFrameIndices(movie.movie()), indices(30, 15));
    EXPECT_NEAR(CMTimeGetSeconds(AVAsset::assetWithURL(movie.movie())->duration()), sessionAtRange ? 0.5 : 1.5, 1e-3);
  }
}

TEST(LUMRender, RunsAgainOnDataBuiltBeforeAndReplacesItsFileSayingWhenThereWasNone) {
  OutputFolder folder;
  LogCapture log;
  const auto composition = timelineOf({clip(5)});
  const auto data = LUMAVComposition::buildNativeCompositionData(composition);
  const auto render = LUMRender::initWithData(data, composition, folder.movie());
  for (int round = 0; round < 2; ++round) {
    Host host(render);
    render->generate();
    ASSERT_TRUE(host.waitForEnd());
    EXPECT_EQ(host.endings, Endings{"completed movie.mp4"});
    EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCompleted);
  }
  EXPECT_EQ(render->compositionData(), data);
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("LUMRender cannot clean file from url: ")));
}

TEST(LUMRender, CleansForADelegateThatImplementsNothingAndForNone) {
  for (const auto& delegate : {std::make_shared<LUMRenderDelegate>(), std::shared_ptr<LUMRenderDelegate>()}) {
    for (const Answer answer : {Answer::frame, Answer::error}) {
      Export movie(timelineOf({clip(3)}), answer);
      movie.render->setDelegate(delegate);
      LogCapture log;
      movie.render->generate();
      ASSERT_TRUE(runUntil([&] { return !movie.render->serial_queue(); }));
      EXPECT_EQ(movie.render->statistics().phase, Phase::done);
      EXPECT_EQ(movie.files().empty(), answer == Answer::error);
      EXPECT_FALSE(log.contains({"LUMRender build failed"}));
    }
  }
}

TEST(LUMRender, NamesItsQueueWhichIsConcurrent) {
  const auto queue = LUMRender::initWithComposition(timelineOf({}), {})->renderer_queue();
  EXPECT_EQ(dispatch_queue_get_label(queue), "corvane.renderer.queue");
  EXPECT_TRUE(dispatch_queue_get_attributes(queue).concurrent);
}

// ---- set-up that stops ----

TEST(LUMRenderSetUp, StopsWithOneLineAndKeepsTheReason) {
  OutputFolder folder;
  const auto url = folder.movie();
  const auto good = timelineOf({clip(3)}), flat = timelineOf({clip(3)}, {0, 180});
  const auto data = LUMAVComposition::buildNativeCompositionData(good);
  const auto withoutLayout = LUMAVCompositionData::initWithVideoComposition(data->videoComposition(), nullptr, nullptr);
  const auto withoutVideo = LUMAVCompositionData::initWithVideoComposition(nullptr, data->composition(), nullptr);
  const std::string noInput = "LUMRender cannot add AVAssetWriterInput(AVMediaTypeVideo) in AVAssetWritter";
  const std::string noStart = "Cannot start AVAssetWritter or AVAssetReader reader: 1  writer: 0";
  const struct {
    std::shared_ptr<LUMRender> render;
    std::string line;
    bool hasCause;
  } rows[] = {
      {LUMRender::initWithData(nullptr, good, {}), "LUMRender fileURL is NULL", false},
      {LUMRender::initWithData(withoutLayout, good, url), "LUMRender cannot create AVAssetReader with error: ", true},
      {LUMRender::initWithData(nullptr, timelineOf({}), url), "LUMRender video tracks is empty.", false},
      {LUMRender::initWithData(nullptr, nullptr, url), "LUMRender video tracks is empty.", false},
      {LUMRender::initWithData(data, flat, url), noInput, false},
      {LUMRender::initWithData(withoutVideo, good, url), noStart, true},
  };
  for (const auto& [render, line, hasCause] : rows) {
    LogCapture log;
    render->setUseNativeComposition(true);
    Host host(render);
    render->generate();
    drainMainQueue();
    EXPECT_TRUE(log.contains({"[LUMLog] " + line})) << line;
    const NSError error = render->setUpError().value_or(NSError{});
    EXPECT_THAT(error.localizedDescription(), ::testing::StartsWith(line));
    EXPECT_EQ(error.underlyingError().has_value(), hasCause) << line;
    EXPECT_THAT(host.endings, IsEmpty()) << line;
    render->clean();
    EXPECT_THAT(folder.files(), IsEmpty()) << line;
  }
}

TEST(LUMRenderSetUp, ReportsAWriterThatCannotBeMadeAtOnceAndDoesNotClean) {
  const auto url = testing::scratchFolder() / "no such folder" / "movie.mp4";
  const auto render = LUMRender::initWithComposition(timelineOf({clip(3)}), url);
  Host host(render);
  render->generate();
  EXPECT_EQ(host.endings, Endings{"failed"});
  EXPECT_EQ(host.error.domain(), AVFoundationErrorDomain);
  EXPECT_NE(render->serial_queue(), nullptr);
  EXPECT_TRUE(render->setUpError());
}

TEST(LUMRenderSetUp, KeepsAFolderThatStandsWhereTheMovieShouldGo) {
  Export movie(timelineOf({clip(3)}));
  std::filesystem::create_directories(movie.movie() / "inside");
  movie.render->generate();
  EXPECT_TRUE(movie.render->setUpError());
  EXPECT_TRUE(std::filesystem::exists(movie.movie() / "inside"));
}

// ---- failures while running ----

TEST(LUMRender, LetsTheHostSeeThatTheFileCouldNotBeCompletedOrTheDiskIsFull) {
  for (const bool diskFull : {false, true}) {
    Export movie(timelineOf({clip(30, 1.0)}));
    Host& host = movie.host;
    std::optional<testing::FileSizeLimit> limit;
    if (diskFull) {
      limit.emplace(4096);
    } else {
      host.listener->renderDidUpdateProgress = [&](double) { std::filesystem::create_directories(movie.movie() / "in the way"); };
    }
    movie.run();
    limit.reset();
    EXPECT_EQ(host.endings.size(), 1u);
    EXPECT_EQ(host.writerStatus, AVAssetWriterStatusFailed);
    ASSERT_TRUE(host.writerError);
    EXPECT_THAT(host.writerError->localizedDescription(), HasSubstr("movie.mp4"));
    EXPECT_TRUE(host.writerError->underlyingError());
    EXPECT_EQ(movie.files().size(), diskFull ? 0u : 1u) << "the folder that was in the way";
  }
}

// ---- cancellation ----

TEST(LUMRenderCancel, ReportsItselfBeforeTheStartAndAfterTheEnd) {
  Export movie(timelineOf({clip(3)}));
  movie.render->cancel();
  EXPECT_EQ(movie.host.endings, Endings{"cancelled"});
  EXPECT_FALSE(movie.render->cancel_period());
  movie.host.endings.clear();
  movie.run();
  movie.render->cancel();
  EXPECT_EQ(movie.host.endings, (Endings{"completed movie.mp4", "cancelled"}));
  EXPECT_THAT(movie.files(), ElementsAre("movie.mp4"));
}

TEST(LUMRenderCancel, EndsARunningExportOnceAndLeavesNothing) {
  Export movie(timelineOf({clip(300, 10.0)}));
  movie.host.listener->renderDidUpdateProgress = [&](double) {
    movie.render->cancel();
    movie.render->cancel();
  };
  movie.run();
  drainMainQueue();
  EXPECT_EQ(movie.host.endings, Endings{"cancelled"});
  EXPECT_EQ(movie.host.writerStatus, AVAssetWriterStatusCancelled);
  EXPECT_FALSE(movie.render->cancel_period());
  EXPECT_THAT(movie.files(), IsEmpty());
}

TEST(LUMRenderCancel, DuringSetUpIsReportedOnceAndStopsIt) {
  Export movie(timelineOf({clip(30, 1.0)}));
  const auto& render = movie.render;
  Host& host = movie.host;
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
  EXPECT_THAT(movie.files(), IsEmpty());
}

TEST(LUMRenderCancel, WhileTheFileIsBeingCompletedEndsInOneCall) {
  Export movie(timelineOf({clip(60, 2.0)}));
  const auto& render = movie.render;
  Host& host = movie.host;
  render->generate();
  ASSERT_TRUE(spinUntil([&] { return render->statistics().phase == Phase::finish || !host.endings.empty(); }));
  if (host.endings.empty()) render->cancel();
  ASSERT_TRUE(host.waitForEnd());
  drainMainQueue();
  ASSERT_EQ(host.endings.size(), 1u);
  const bool written = host.writerStatus == AVAssetWriterStatusCompleted;
  EXPECT_EQ(movie.files().size(), written ? 1u : 0u);
}

/// Round n cancels from another thread when n samples have been reported; round 0 races with generate().
TEST(LUMRenderCancel, AtAnyMomentFromAnyThreadLeavesNothingRunning) {
  const auto composition = timelineOf({clip(20, 0.7)});
  const auto canceller = dispatch_queue_create("canceller", DISPATCH_QUEUE_SERIAL);
  for (int round = 0; round < 24; ++round) {
    Export movie(composition, round % 2 == 0 ? Export::Answer{} : Answer::frameLater);
    const auto render = movie.render;
    Host& host = movie.host;
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
    EXPECT_EQ(movie.files().empty(), host.writerStatus != AVAssetWriterStatusCompleted) << round;
  }
}

// ---- release ----

TEST(LUMRenderRelease, EndsTheExportAndLeavesNothing) {
  for (const Answer answer : {Answer::frameLater, Answer::never}) {
    Export movie(timelineOf({clip(300, 10.0)}), answer);
    auto& render = movie.render;
    render->generate();
    const std::weak_ptr<LUMRender> released = render;
    const std::weak_ptr<AVAssetWriter> writer = render->writer();
    const std::weak_ptr<AVAssetReader> reader = render->reader();
    ASSERT_TRUE(spinUntil([&] { return movie.drawer->heldCount() > 0 || render->statistics().video.frameCount > 3; }));
    render.reset();
    ASSERT_TRUE(spinUntil([&] { return released.expired() && writer.expired() && reader.expired(); }));
    drainMainQueue();
    EXPECT_THAT(movie.host.endings, IsEmpty());
    EXPECT_THAT(movie.files(), IsEmpty());
  }
}

TEST(LUMRenderRelease, LetsGoOfEverythingAfterAnExport) {
  auto composition = timelineOf({clip(5, 0.2)});
  Export movie(composition);
  auto& render = movie.render;
  render->generate();
  const std::weak_ptr<AVAssetWriter> writer = render->writer();
  const std::weak_ptr<AVAssetReader> reader = render->reader();
  ASSERT_TRUE(movie.host.waitForEnd());
  const std::weak_ptr<LUMRender> released = render;
  const std::weak_ptr<LUMComposition> timeline = composition;
  render.reset();
  composition.reset();
  EXPECT_TRUE(spinUntil([&] { return released.expired() && timeline.expired() && writer.expired() && reader.expired(); }));
}

}  // namespace
}  // namespace vidloom
