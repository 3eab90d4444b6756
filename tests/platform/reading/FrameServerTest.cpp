#include "vidloom/platform/reading/FrameServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/FrameServerFixture.h"

namespace vidloom {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

using FrameServerTest = FrameServerFixture;

TEST_F(FrameServerTest, ServesEveryFrameOfTheGridInOrderHoweverManyAreUnderWay) {
  show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
  setup.range = {seconds(1, 60), seconds(299, 30)};
  for (const size_t underWay : {1, 2, 9}) {
    setup.framesUnderWay = underWay;
    log->frames = 0;
    const ServedFrames served = serveAll(*server());
    EXPECT_EQ(served.numbers, numbers(0, 299));
    for (size_t i = 0; i < served.times.size(); ++i) {
      ASSERT_EQ(CMTimeCompare(served.times[i], CMTimeMake(static_cast<int64_t>(2 * i) + 1, 60)), 0) << served.times[i];
    }
    EXPECT_EQ(log->frames, 299);
    EXPECT_FALSE(served.error);
  }
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
  EXPECT_TRUE(served.error->underlyingError());
  for (const char* words : {"broken.mp4", "0.1", "no picture in there"})
    EXPECT_NE(served.error->localizedDescription().find(words), std::string::npos) << *served.error;
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

}  // namespace
}  // namespace vidloom
