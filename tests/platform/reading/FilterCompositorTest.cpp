#include <gmock/gmock.h>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/FrameServerFixture.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/avfoundation/CIFilterInstruction.h"
#include "vidloom/platform/coreimage/CIContext.h"

namespace vidloom {
namespace {

using ::testing::Each;
using FilterRequestRef = std::shared_ptr<AVAsynchronousCIImageFilteringRequest>;

/// A track whose pictures are to be turned.
class TurnedTrack : public FakeTrack {
 public:
  TurnedTrack(std::vector<MediaSegment> segments, CGAffineTransform turn)
      : FakeTrack(1, AVMediaTypeVideo, std::move(segments)), turn_(turn) {}
  CGAffineTransform preferredTransform() const override { return turn_; }

 private:
  const CGAffineTransform turn_;
};

class FilterCompositorTest : public FrameServerFixture {
 protected:
  std::shared_ptr<FrameServer> filtered(AVCIImageFilteringHandler handler) {
    if (setup.videoTracks.empty()) addFilm();
    composition->setInstructions({std::make_shared<CIFilterInstruction>(setup.videoTracks.front(), std::move(handler))});
    setup.pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    return server();
  }
};

TEST_F(FilterCompositorTest, TheSourceImageItselfIsPassedOnAsTheDecodedPictureAlsoLaterAndInAnyOrder) {
  const auto source = filtered([](const FilterRequestRef& request) {
    EXPECT_EQ(request->sourceImage()->extent(), CGRectMake(0, 0, 64, 36));
    EXPECT_EQ(request->renderSize(), CGSizeMake(64, 36));
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT),
                   [request] { request->finishWithImage(request->sourceImage(), nullptr); });
  });
  const ServedFrames served = serveAll(*source);
  EXPECT_EQ(served.numbers, numbers(0, 30));
  EXPECT_EQ(CMTimeCompare(served.times[7], seconds(7, 30)), 0);
  EXPECT_EQ(log->frames, 30);
}

TEST_F(FilterCompositorTest, DrawsWhatTheHandlerMakesOfTheFrame) {
  const auto context = CIContext::context();
  const auto source = filtered([context](const FilterRequestRef& request) {
    const auto white = CIImage::imageWithColor(1, 1, 1, 1)->imageByCroppingToRect(CGRectMake(32, 0, 32, 18));
    request->finishWithImage(white->imageByCompositingOverImage(request->sourceImage()), context);
  });
  const auto sample = source->next(nullptr);
  EXPECT_EQ(frameNumber(*pictureOf(sample)), 0);
  EXPECT_EQ(lumaAt(sample, 40, 26), 235) << "the lower right quarter";
  EXPECT_NE(lumaAt(sample, 40, 8), 235);
  EXPECT_NE(lumaAt(sample, 20, 26), 235);
}

TEST_F(FilterCompositorTest, SourceImagesAreUprightAndAtTheRenderScale) {
  setup.videoTracks = {std::make_shared<TurnedTrack>(std::vector{segment(film, kCMTimeZero, seconds(10), kCMTimeZero)},
                                                     CGAffineTransform{0, 1, -1, 0, 36, 0})};
  composition->setRenderSize({36, 64});
  for (const int scale : {1, 2}) {
    composition->setRenderScale(static_cast<float>(scale));
    const auto source = filtered([scale](const FilterRequestRef& request) {
      EXPECT_EQ(request->sourceImage()->extent(), CGRectMake(0, 0, 36 * scale, 64 * scale));
      request->finishWithImage(request->sourceImage(), nullptr);
    });
    const auto sample = source->next(nullptr);
    EXPECT_EQ(pictureOf(sample)->width, 36 * scale);
    // The top row of the stored picture has become the right column.
    EXPECT_EQ(lumaAt(sample, 36 * scale - 1, 3 * scale - 1), kMark);
  }
}

TEST_F(FilterCompositorTest, AnEmptyStretchGivesBlackAndTheHandlerIsStillAsked) {
  addTrack({emptySegment(kCMTimeZero, seconds(2, 30)), segment(film, seconds(2, 30), seconds(5), kCMTimeZero)});
  std::atomic<int> asked{0};
  const auto source = filtered([&](const FilterRequestRef& request) {
    ++asked;
    EXPECT_EQ(request->sourceImage()->extent(), CGRectMake(0, 0, 64, 36));
    request->finishWithImage(request->sourceImage(), nullptr);
  });
  setup.range = {kCMTimeZero, seconds(4, 30)};
  EXPECT_THAT(serveAll(*server()).numbers, ::testing::ElementsAre(-1, -1, 0, 1));
  EXPECT_EQ(asked, 4);
}

TEST_F(FilterCompositorTest, EveryOtherEndFailsTheReading) {
  const AVCIImageFilteringHandler rows[] = {
      [](const FilterRequestRef& request) { request->finishWithError(AVMakeError(AVErrorUnknown, "no")); },
      [](const FilterRequestRef& request) { request->finishWithImage(nullptr, nullptr); },
      [](const FilterRequestRef&) {},
      nullptr,
  };
  for (const auto& handler : rows) {
    std::optional<NSError> error;
    EXPECT_EQ(filtered(handler)->next(&error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), AVErrorVideoCompositorFailed);
    EXPECT_TRUE(error->underlyingError());
  }
}

TEST(FilterComposition, TakesSizeAndRateFromTheFirstTrack) {
  for (const auto& [rate, frameDuration] : {std::pair{"25", seconds(1, 25)},
                                            {"30000/1001", seconds(1001, 30000)},
                                            {"24000/1001", seconds(1001, 24000)},
                                            {"12.5", seconds(7200, 90000)}}) {
    const auto clip = makeClip({.frameCount = 50, .frameRate = rate, .width = 64, .height = 36});
    const auto asset = AVURLAsset::initWithURL(withMatrix(clip, {0, 1, -1, 0, 36, 0}));
    const auto composition = AVMutableVideoComposition::videoCompositionWithAsset(asset, nullptr);
    EXPECT_EQ(CMTimeCompare(composition->frameDuration(), frameDuration), 0) << composition->frameDuration();
    EXPECT_EQ(composition->renderSize(), CGSizeMake(36, 64));
  }
}

}  // namespace
}  // namespace vidloom
