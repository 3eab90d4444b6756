#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/FrameServerFixture.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using testing::LogCapture;

using CustomCompositorTest = FrameServerFixture;

TEST_F(CustomCompositorTest, AHostMayAnswerInAnyOrder) {
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

TEST_F(CustomCompositorTest, AHostMayAnswerFromManyThreads) {
  const auto source = hostedServer([](const RequestRef& request) {
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [request] { echo(request); });
  });
  setup.range = {kCMTimeZero, seconds(10)};
  EXPECT_EQ(serveAll(*server()).numbers, numbers(0, 300));
}

TEST_F(CustomCompositorTest, AHostHasAFixedNumberOfRequestsAtATime) {
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

TEST_F(CustomCompositorTest, RequestsSayWhatTheyAreFor) {
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

TEST_F(CustomCompositorTest, ASourceFrameThatComesBackIsThePictureThatWasDecoded) {
  const auto source = hostedServer(echo);
  const auto sample = source->next(nullptr);
  EXPECT_EQ(testing::frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample))), 0);
  // In another format, too.
  setup.pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
  const auto other = server()->next(nullptr);
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(CMSampleBufferGetImageBuffer(other)), setup.pixelFormat);
  EXPECT_EQ(testing::frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(other))), 0);
}

TEST_F(CustomCompositorTest, SourcesReachTheHostAtTheirDisplaySizeInTheOutputsColour) {
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

TEST_F(CustomCompositorTest, CancelledRequestsGiveNoSample) {
  const auto source = hostedServer([&](const RequestRef& request) {
    if (++count % 3 == 0) return request->finishCancelledRequest();
    echo(request);
  });
  setup.range = {kCMTimeZero, seconds(7, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(0, 1, 3, 4, 6));
}

TEST_F(CustomCompositorTest, APassedThroughTrackAndAGapBetweenInstructionsDoNotReachTheHost) {
  const auto instruction = std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(2, 30)});
  instruction->passthrough_ = addFilm();
  addInstruction(instruction);
  useCompositor([](const RequestRef&) { FAIL() << "asked to compose"; });
  setup.range = {kCMTimeZero, seconds(3, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ElementsAre(0, 1, -1));
}

TEST_F(CustomCompositorTest, EveryOtherEndOfARequestFailsTheReadingAtItsTime) {
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

int linesWith(const LogCapture& capture, const std::string& text) {
  const auto lines = capture.lines();
  return static_cast<int>(
      std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

TEST_F(CustomCompositorTest, ASecondAnswerIsDroppedAndLoggedOnce) {
  const LogCapture capture;
  const auto source = hostedServer([](const RequestRef& request) {
    echo(request);
    request->finishWithError(AVMakeError(AVErrorUnknown, "changed my mind"));
    request->finishCancelledRequest();
  });
  setup.range = {kCMTimeZero, seconds(2, 30)};
  EXPECT_EQ(serveAll(*server()).numbers, numbers(0, 2));
  compositor->close();  // after the last answers
  EXPECT_EQ(linesWith(capture, "0.033333"), 1);
  EXPECT_EQ(linesWith(capture, "answered before"), 2);
}

TEST_F(CustomCompositorTest, OfAnswersThatRaceOneCounts) {
  const auto gate = dispatch_group_create();
  setup.range = {kCMTimeZero, seconds(60, 30)};
  const auto source = hostedServer([gate](const RequestRef& request) {
    const auto queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT);
    for (int i = 0; i < 3; ++i) dispatch_group_async(gate, queue, [request] { echo(request); });
    dispatch_group_async(gate, queue, [request] { request->finishCancelledRequest(); });
  });
  const ServedFrames served = serveAll(*source);
  EXPECT_FALSE(served.error);
  EXPECT_TRUE(std::is_sorted(served.numbers.begin(), served.numbers.end()));
  EXPECT_EQ(std::set<int>(served.numbers.begin(), served.numbers.end()).size(), served.numbers.size());
  dispatch_group_wait(gate, DISPATCH_TIME_FOREVER);
}

TEST_F(CustomCompositorTest, AHostThatNeverAnswersAFrameFailsTheReadingAfterTheTimeout) {
  DispatchClock::setCurrent(clock);
  auto source = hostedServer([this](const RequestRef& request) {
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
  EXPECT_TRUE(cameThrough(compositor->cancelled_)) << "the host is told that nothing is wanted any more";
  // Whether the server is still there or not.
  const LogCapture capture;
  source.reset();
  echo(held.front());
  echo(held.front());
  EXPECT_EQ(linesWith(capture, "too late"), 1);
  EXPECT_TRUE(capture.contains({"0.066667", "too late"}));
}

TEST_F(CustomCompositorTest, ARequestThatIsReleasedAfterTheTimeoutIsNoLateAnswer) {
  DispatchClock::setCurrent(clock);
  auto source = hostedServer([this](const RequestRef& request) {
    held.push_back(request);
    if (held.size() == 4) clock->advance(setup.answerTimeoutNs);
  });
  ASSERT_TRUE(serveAll(*source).error);
  const LogCapture capture;
  held.clear();
  EXPECT_EQ(linesWith(capture, "too late"), 0);
}

TEST_F(CustomCompositorTest, AHostIsWaitedForForEverWhereNoLimitIsSet) {
  DispatchClock::setCurrent(clock);
  setup.answerTimeoutNs = ~uint64_t{0};
  const auto asked = dispatch_semaphore_create(0);
  auto source = hostedServer([this, asked](const RequestRef& request) {
    held.push_back(request);
    if (held.size() == 4) dispatch_semaphore_signal(asked);
  });
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [this, asked] {
    EXPECT_TRUE(cameThrough(asked));
    clock->advance(3'600'000'000'000);
    echo(held.front());
  });
  const auto sample = source->next(nullptr);
  ASSERT_TRUE(sample);
  EXPECT_EQ(testing::frameNumber(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample))), 0);
}

TEST_F(CustomCompositorTest, AFrameOfAnotherSizeIsFittedIntoTheOutput) {
  const auto source = hostedServer([](const RequestRef& request) {
    CVPixelBufferRef white;
    CVPixelBufferCreate(32, 36, kCVPixelFormatType_32BGRA, {}, &white);
    CVPixelBufferLockBaseAddress(white, 0);
    std::memset(CVPixelBufferGetBaseAddress(white), 255, CVPixelBufferGetBytesPerRow(white) * 36);
    CVPixelBufferUnlockBaseAddress(white, 0);
    request->finishWithComposedVideoFrame(white);
  });
  const auto sample = source->next(nullptr);
  const PictureRef picture = CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample));
  ASSERT_EQ(picture->width, 64);
  ASSERT_EQ(picture->height, 36);
  const uint8_t* middle = picture->y.data + 18 * picture->y.stride;
  EXPECT_THAT(std::vector<int>({middle[0], middle[14], middle[17], middle[46], middle[49], middle[63]}),
              ElementsAre(16, 16, 235, 235, 16, 16));
}

TEST_F(CustomCompositorTest, AHostThatAnswersSlowlyIsWaitedForAsLongAsAnswersCome) {
  DispatchClock::setCurrent(clock);
  const auto source = hostedServer([&](const RequestRef& request) {
    clock->advance(setup.answerTimeoutNs / 2);
    echo(request);
  });
  EXPECT_EQ(serveAll(*source).numbers, numbers(0, 30));
}

TEST_F(CustomCompositorTest, CancellingWakesAServerThatWaitsForAHost) {
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
  const LogCapture capture;
  for (const RequestRef& request : held) echo(request);
  EXPECT_TRUE(capture.lines().empty()) << "answers that a cancellation has made late are nobody's fault";
}

TEST_F(CustomCompositorTest, RefusesACompositorWithoutAFormat) {
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
