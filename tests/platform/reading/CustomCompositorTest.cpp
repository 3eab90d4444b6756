#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/FrameServerFixture.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using CustomCompositorTest = FrameServerFixture;

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
  const std::pair<std::function<void(const RequestRef&)>, std::string> rows[] = {
      {[](const RequestRef& request) { request->finishWithError(AVMakeError(AVErrorUnknown, "out of paint")); }, "out of paint"},
      {[](const RequestRef& request) { request->finishWithComposedVideoFrame(nullptr); }, "null frame"},
      {[](const RequestRef&) {}, "without an answer"},
  };
  for (const auto& [answer, words] : rows) {
    if (compositor) compositor->close();
    count = 0;
    const auto source =
        hostedServer([this, end = answer](const RequestRef& request) { ++count == 3 ? end(request) : echo(request); });
    const ServedFrames served = serveAll(*source);
    EXPECT_EQ(served.numbers, numbers(0, 2));
    ASSERT_TRUE(served.error && served.error->underlyingError());
    EXPECT_EQ(served.error->code(), AVErrorVideoCompositorFailed);
    EXPECT_THAT(served.error->localizedDescription(), AllOf(HasSubstr("0.066667"), HasSubstr(words)));
    EXPECT_EQ(source->next(nullptr), nullptr);
  }
}

int linesWith(const LogCapture& capture, const std::string& text) {
  int count = 0;
  for (const std::string& line : capture.lines()) count += line.find(text) != std::string::npos;
  return count;
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

TEST_F(CustomCompositorTest, AFrameThatIsNotAnsweredFailsTheReadingAndMayBeReleasedLater) {
  DispatchClock::setCurrent(clock);
  const auto source = hostedServer([this](const RequestRef& request) {
    held.push_back(request);
    if (++count == 3) echo(held[0]);  // and no other
    if (count == 5) clock->advance(setup.answerTimeoutNs);
  });
  const ServedFrames served = serveAll(*source);
  EXPECT_EQ(served.numbers, numbers(0, 1));
  ASSERT_TRUE(served.error);
  EXPECT_NE(served.error->localizedDescription().find("0.033333 s"), std::string::npos) << *served.error;
  EXPECT_EQ(log->frames, 5) << "nothing is decoded beyond what a host may have at a time";
  EXPECT_TRUE(cameThrough(compositor->cancelled_)) << "the host is told that nothing is wanted any more";
  const LogCapture capture;
  held.clear();
  EXPECT_EQ(linesWith(capture, "too late"), 0);
}

TEST_F(CustomCompositorTest, AFrameOfAnotherSizeIsFittedIntoTheOutput) {
  const auto source =
      hostedServer([](const RequestRef& request) { request->finishWithComposedVideoFrame(greyBuffer(32, 36, 235)); });
  const PictureRef picture = pictureOf(source->next(nullptr));
  ASSERT_EQ(picture->width, 64);
  ASSERT_EQ(picture->height, 36);
  const uint8_t* middle = picture->y.data + 18 * picture->y.stride;
  EXPECT_THAT(std::vector<int>({middle[0], middle[14], middle[17], middle[46], middle[49], middle[63]}),
              ElementsAre(16, 16, 235, 235, 16, 16));
}

TEST_F(CustomCompositorTest, AHostThatAnswersSlowlyIsWaitedForAsLongAsAnswersComeOrForEverWhereNoLimitIsSet) {
  DispatchClock::setCurrent(clock);
  const uint64_t limits[][2] = {{setup.answerTimeoutNs, setup.answerTimeoutNs / 2}, {~uint64_t{0}, 3'600'000'000'000}};
  for (const auto& [limitNs, answerNs] : limits) {
    setup.answerTimeoutNs = limitNs;
    const auto source = hostedServer([this, needed = answerNs](const RequestRef& request) {
      clock->advance(needed);
      echo(request);
    });
    EXPECT_EQ(serveAll(*source).numbers, numbers(0, 30));
  }
}

TEST_F(CustomCompositorTest, RefusesACompositorWithoutAFormat) {
  addFilm();
  composition->setCustomVideoCompositorClass(scriptedClass());
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
