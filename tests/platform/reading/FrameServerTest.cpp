#include "vidloom/platform/reading/FrameServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/ReadingTesting.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/dispatch/DispatchClock.h"

namespace vidloom {
namespace {

using testing::DecoderLog;
using ::testing::Each;
using ::testing::ElementsAre;
using testing::emptySegment;
using testing::FakeFile;
using testing::FakeTrack;
using testing::LogCapture;
using testing::PlainInstruction;
using testing::RequestRef;
using testing::ScriptedCompositor;
using testing::seconds;
using testing::segment;
using testing::serveAll;
using testing::ServedFrames;

std::vector<int> numbers(int first, int end) {
  std::vector<int> all;
  for (int i = first; i < end; ++i) all.push_back(i);
  return all;
}

class FrameServerTest : public ::testing::Test {
 protected:
  FrameServerTest() {
    composition->setRenderSize({64, 36});
    composition->setFrameDuration(CMTimeMake(1, 30));
    setup.pixelFormat = kCVPixelFormatType_32BGRA;
    setup.opener = testing::fakeVideoOpener(log);
    setup.range = {kCMTimeZero, seconds(1)};
  }
  ~FrameServerTest() override {
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
    composition->setCustomVideoCompositorClass(testing::scriptedClass());
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

TEST_F(FrameServerTest, ServesEveryFrameOfTheGridInOrder) {
  show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
  setup.range = {seconds(1, 60), seconds(299, 30)};
  const ServedFrames served = serveAll(*server());
  EXPECT_EQ(served.numbers, numbers(0, 299));
  for (size_t i = 0; i < served.times.size(); ++i) {
    ASSERT_EQ(CMTimeCompare(served.times[i], CMTimeMake(static_cast<int64_t>(2 * i) + 1, 60)), 0) << served.times[i];
  }
  EXPECT_EQ(log->frames, 299);
  EXPECT_FALSE(served.error);
}

TEST_F(FrameServerTest, SamplesLastAFrameDurationAndShowTheAskedFormat) {
  show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
  const auto sample = server()->next(nullptr);
  ASSERT_TRUE(sample);
  EXPECT_EQ(CMTimeCompare(CMSampleBufferGetDuration(sample), CMTimeMake(1, 30)), 0);
  const auto buffer = CMSampleBufferGetImageBuffer(sample);
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer), kCVPixelFormatType_32BGRA);
  EXPECT_EQ(CVBufferGetAttachment(buffer, kCVImageBufferYCbCrMatrixKey), AVVideoYCbCrMatrix_ITU_R_709_2);
}

TEST_F(FrameServerTest, IsBlackInGapsAndOutsideInstructionsAndWithoutVisibleLayers) {
  const auto id = addTrack({segment(film, kCMTimeZero, seconds(2, 30), kCMTimeZero), emptySegment(seconds(2, 30), seconds(1, 30)),
                            segment(film, seconds(3, 30), seconds(10), seconds(5))});
  const auto fading = layer(id);
  fading->setOpacity(0, seconds(5, 30));
  fading->setOpacity(1, seconds(6, 30));
  show({kCMTimeZero, seconds(8, 30)}, {fading});
  setup.range = {kCMTimeZero, seconds(10, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(0, 1, -1, 150, 151, -1, 153, 154, -1, -1));
  EXPECT_EQ(log->frames, 6) << "what cannot be seen is not decoded";
}

TEST_F(FrameServerTest, TheFirstLayerCoversTheOthers) {
  const auto other = FakeFile::steadyVideo("other", 30, 1, 300);
  const auto below = addFilm();
  const auto above = addTrack({segment(other, kCMTimeZero, seconds(1, 30), seconds(5))});
  show({kCMTimeZero, seconds(10)}, {layer(above), layer(below)});
  setup.range = {kCMTimeZero, seconds(2, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(150, 1));
}

TEST_F(FrameServerTest, DecodesNoLayerThatLiesOutsideTheFrame) {
  const auto away = layer(addFilm());
  away->setTransform({1, 0, 0, 1, 64, 0}, kCMTimeZero);
  const auto flat = layer(addFilm());
  flat->setTransform({1, 0, 0, 0, 0, 0}, kCMTimeZero);
  show({kCMTimeZero, seconds(10)}, {away, flat});
  EXPECT_THAT(serveAll(*server()).numbers, Each(-1));
  EXPECT_EQ(log->frames, 0);
}

TEST_F(FrameServerTest, AnUnreadableFileEndsInAnErrorThatNamesIt) {
  addTrack({segment(film, kCMTimeZero, seconds(3, 30), kCMTimeZero),
            segment(FakeFile::video("broken.mp4", 30, {}), seconds(3, 30), seconds(1), kCMTimeZero)});
  show({kCMTimeZero, seconds(10)}, {layer(1)});
  const auto source = server();
  const ServedFrames served = serveAll(*source);
  EXPECT_EQ(served.numbers, numbers(0, 3));
  ASSERT_TRUE(served.error);
  EXPECT_NE(served.error->localizedDescription().find("broken.mp4"), std::string::npos) << *served.error;
  EXPECT_EQ(source->next(nullptr), nullptr);
}

TEST_F(FrameServerTest, CancellingWakesAServerThatWaitsForADecoder) {
  show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
  log->blocksUntilCancelled = true;
  const auto source = server();
  const auto done = dispatch_semaphore_create(0);
  std::optional<NSError> error;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [&] {
    EXPECT_EQ(source->next(&error), nullptr);
    dispatch_semaphore_signal(done);
  });
  source->cancel();
  EXPECT_TRUE(cameThrough(done));
  EXPECT_FALSE(error);
}

TEST_F(FrameServerTest, AHostMayAnswerInAnyOrder) {
  // Answers come in pairs, the later one first.
  const auto source = hostedServer([&](const RequestRef& request) {
    held.push_back(request);
    if (held.size() < 2) return;
    echo(held[1]);
    echo(held[0]);
    held.clear();
  });
  EXPECT_EQ(serveAll(*source).numbers, numbers(0, 30));
}

TEST_F(FrameServerTest, AHostMayAnswerFromManyThreads) {
  const auto source = hostedServer([](const RequestRef& request) {
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [request] { echo(request); });
  });
  setup.range = {kCMTimeZero, seconds(10)};
  EXPECT_EQ(serveAll(*server()).numbers, numbers(0, 300));
}

TEST_F(FrameServerTest, AHostHasAFixedNumberOfRequestsAtATime) {
  const auto full = dispatch_semaphore_create(0), done = dispatch_semaphore_create(0);
  const auto source = hostedServer([&, full](const RequestRef& request) {
    const std::lock_guard lock(mutex);
    held.push_back(request);
    if (held.size() == 4) dispatch_semaphore_signal(full);
  });
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [source, done] {
    EXPECT_TRUE(source->next(nullptr));
    dispatch_semaphore_signal(done);
  });
  ASSERT_TRUE(cameThrough(full));
  EXPECT_EQ(log->frames, 4) << "nothing is decoded beyond them";
  RequestRef first;
  {
    const std::lock_guard lock(mutex);
    first = held.front();
  }
  echo(first);
  EXPECT_TRUE(cameThrough(done));
  source->cancel();
}

TEST_F(FrameServerTest, RequestsSayWhatTheyAreFor) {
  const auto empty = addTrack({emptySegment(kCMTimeZero, seconds(5)), segment(film, seconds(5), seconds(1), kCMTimeZero)});
  const auto shown = addFilm();
  const auto unwanted = addFilm();
  const auto instruction = std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(10)});
  instruction->required_ = {{empty, shown, 99}};
  addInstruction(instruction);
  composition->setRenderScale(2);
  useCompositor([&](const RequestRef& request) {
    EXPECT_EQ(request->videoCompositionInstruction(), instruction);
    EXPECT_THAT(request->sourceTrackIDs(), ElementsAre(shown));
    EXPECT_EQ(request->sourceFrameByTrackID(empty), nullptr);
    EXPECT_EQ(request->sourceFrameByTrackID(unwanted), nullptr);
    EXPECT_EQ(request->renderContext(), compositor->context_);
    EXPECT_EQ(request->renderContext()->size(), (CGSize{128, 72}));
    const CVPixelBufferRef buffer = request->renderContext()->newPixelBuffer();
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer), kCVPixelFormatType_32BGRA);
    EXPECT_EQ(CVPixelBufferGetWidth(buffer), 128u);
    EXPECT_EQ(CVBufferGetAttachment(buffer, kCVImageBufferYCbCrMatrixKey), AVVideoYCbCrMatrix_ITU_R_709_2);
    request->finishWithComposedVideoFrame(buffer);
  });
  EXPECT_THAT(serveAll(*server()).numbers, Each(-1));
}

TEST_F(FrameServerTest, ASourceFrameThatComesBackIsThePictureThatWasDecoded) {
  const auto source = hostedServer(echo);
  const auto sample = source->next(nullptr);
  EXPECT_EQ(testing::frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample))), 0);
  // In another format, too.
  setup.pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
  const auto other = server()->next(nullptr);
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(CMSampleBufferGetImageBuffer(other)), setup.pixelFormat);
  EXPECT_EQ(testing::frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(other))), 0);
}

TEST_F(FrameServerTest, SourcesReachTheHostAtTheirDisplaySizeInTheOutputsColour) {
  const auto wide = FakeFile::video("wide", 30, {0}, 48, 36);
  wide->tracks_[0].naturalSize = {64, 36};
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_601_4);
  const auto id = addTrack({segment(wide, kCMTimeZero, seconds(1), kCMTimeZero)});
  addInstruction(std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(10)}));
  useCompositor([id](const RequestRef& request) {
    const CVPixelBufferRef source = request->sourceFrameByTrackID(id);
    EXPECT_EQ(CVPixelBufferGetWidth(source), 64u);
    EXPECT_EQ(CVPixelBufferGetHeight(source), 36u);
    EXPECT_EQ(CVBufferGetAttachment(source, kCVImageBufferYCbCrMatrixKey), AVVideoYCbCrMatrix_ITU_R_601_4);
    request->finishWithComposedVideoFrame(source);
  });
  EXPECT_TRUE(server()->next(nullptr));
}

TEST_F(FrameServerTest, CancelledRequestsGiveNoSample) {
  const auto source = hostedServer([&](const RequestRef& request) {
    if (++count % 3 == 0) return request->finishCancelledRequest();
    echo(request);
  });
  setup.range = {kCMTimeZero, seconds(7, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(0, 1, 3, 4, 6));
}

TEST_F(FrameServerTest, APassedThroughTrackAndAGapBetweenInstructionsDoNotReachTheHost) {
  const auto instruction = std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(2, 30)});
  instruction->passthrough_ = addFilm();
  addInstruction(instruction);
  useCompositor([](const RequestRef&) { FAIL() << "asked to compose"; });
  setup.range = {kCMTimeZero, seconds(3, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(0, 1, -1));
}

TEST_F(FrameServerTest, EveryOtherEndOfARequestFailsTheReadingAtItsTime) {
  struct Row {
    std::function<void(const RequestRef&)> answer;
    std::string words;
  };
  const Row rows[] = {
      {[](const RequestRef& request) { request->finishWithError(AVMakeError(AVErrorUnknown, "out of paint")); }, "out of paint"},
      {[](const RequestRef& request) { request->finishWithComposedVideoFrame(nullptr); }, "null frame"},
      {[](const RequestRef&) {}, "without an answer"},
  };
  for (const Row& row : rows) {
    if (compositor) compositor->close();
    count = 0;
    const auto source =
        hostedServer([this, answer = row.answer](const RequestRef& request) { ++count == 3 ? answer(request) : echo(request); });
    const ServedFrames served = serveAll(*source);
    EXPECT_EQ(served.numbers, numbers(0, 2));
    ASSERT_TRUE(served.error);
    EXPECT_EQ(served.error->code(), AVErrorVideoCompositorFailed);
    ASSERT_TRUE(served.error->underlyingError());
    const std::string text = served.error->localizedDescription();
    EXPECT_NE(text.find("0.066667"), std::string::npos) << text;
    EXPECT_NE(text.find(row.words), std::string::npos) << text;
    EXPECT_EQ(source->next(nullptr), nullptr);
  }
}

TEST_F(FrameServerTest, ASecondAnswerIsDroppedAndLogged) {
  const LogCapture capture;
  const auto source = hostedServer([](const RequestRef& request) {
    echo(request);
    request->finishWithError(AVMakeError(AVErrorUnknown, "changed my mind"));
    request->finishCancelledRequest();
  });
  setup.range = {kCMTimeZero, seconds(2, 30)};
  EXPECT_EQ(serveAll(*server()).numbers, numbers(0, 2));
  EXPECT_TRUE(capture.contains({"0.033333", "dropped"}));
}

TEST_F(FrameServerTest, AHostThatNeverAnswersAFrameFailsTheReadingAfterTheTimeout) {
  DispatchClock::setCurrent(clock);
  const auto source = hostedServer([this](const RequestRef& request) {
    if (++count == 3) {
      held.push_back(request);
    } else {
      echo(request);
    }
    // The last one that fits behind the frame that is kept.
    if (count == 6) clock->advance(setup.answerTimeoutNs);
  });
  const ServedFrames served = serveAll(*source);
  EXPECT_EQ(served.numbers, numbers(0, 2));
  ASSERT_TRUE(served.error);
  EXPECT_EQ(served.error->code(), AVErrorVideoCompositorFailed);
  EXPECT_NE(served.error->localizedDescription().find("0.066667 s"), std::string::npos) << *served.error;
  const LogCapture capture;
  echo(held.front());
  EXPECT_TRUE(capture.contains({"0.066667", "too late"}));
}

TEST_F(FrameServerTest, AHostThatAnswersSlowlyIsWaitedForAsLongAsAnswersCome) {
  DispatchClock::setCurrent(clock);
  const auto source = hostedServer([&](const RequestRef& request) {
    clock->advance(setup.answerTimeoutNs / 2);
    echo(request);
  });
  EXPECT_EQ(serveAll(*source).numbers, numbers(0, 30));
}

TEST_F(FrameServerTest, CancellingWakesAServerThatWaitsForAHost) {
  const auto asked = dispatch_semaphore_create(0), done = dispatch_semaphore_create(0);
  auto source = hostedServer([this, asked](const RequestRef& request) {
    held.push_back(request);
    dispatch_semaphore_signal(asked);
  });
  std::optional<NSError> error;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [&] {
    EXPECT_EQ(source->next(&error), nullptr);
    dispatch_semaphore_signal(done);
  });
  ASSERT_TRUE(cameThrough(asked));
  source->cancel();
  ASSERT_TRUE(cameThrough(done));
  EXPECT_FALSE(error);
  EXPECT_TRUE(cameThrough(compositor->cancelled_)) << "the host is told";
  source.reset();
  compositor->close();
  for (const RequestRef& request : held) echo(request);  // late, and harmless
}

TEST_F(FrameServerTest, FramesDependOnNothingButTheComposition) {
  show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
  for (const size_t underWay : {1, 2, 9}) {
    setup.framesUnderWay = underWay;
    EXPECT_EQ(serveAll(*server()).numbers, numbers(0, 30));
  }
}

TEST_F(FrameServerTest, RefusesACompositorWithoutAFormat) {
  addFilm();
  class Formless : public AVVideoCompositing {};
  composition->setCustomVideoCompositorClass(testing::scriptedClass());
  setup.composition = composition;
  for (const std::shared_ptr<AVVideoCompositing>& useless :
       {std::make_shared<AVVideoCompositing>(), decltype(setup.compositor){}}) {
    setup.compositor = useless;
    std::optional<NSError> error;
    EXPECT_EQ(FrameServer::make(setup, &error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), AVErrorInvalidVideoComposition);
  }
}

}  // namespace
}  // namespace vidloom
