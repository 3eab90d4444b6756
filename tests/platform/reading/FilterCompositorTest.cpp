#include <gmock/gmock.h>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/platform/reading/FrameServerFixture.h"
#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/avfoundation/AVError.h"
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
  static PictureRef pictureOf(const CMSampleBufferRef& sample) {
    return CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample));
  }
};

TEST_F(FilterCompositorTest, TheSourceImageItselfIsPassedOnAsTheDecodedPicture) {
  const auto source = filtered([](const FilterRequestRef& request) {
    EXPECT_EQ(request->sourceImage()->extent(), CGRectMake(0, 0, 64, 36));
    EXPECT_EQ(request->renderSize(), CGSizeMake(64, 36));
    request->finishWithImage(request->sourceImage(), nullptr);
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
  const PictureRef picture = pictureOf(source->next(nullptr));
  EXPECT_EQ(testing::frameNumber(*picture), 0);
  EXPECT_EQ(picture->y.data[26 * picture->y.stride + 40], 235) << "the lower right quarter";
  EXPECT_NE(picture->y.data[8 * picture->y.stride + 40], 235);
  EXPECT_NE(picture->y.data[26 * picture->y.stride + 20], 235);
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
    const PictureRef picture = pictureOf(source->next(nullptr));
    EXPECT_EQ(picture->width, 36 * scale);
    if (scale > 1) continue;
    // The top row of the stored picture has become the right column.
    EXPECT_EQ(picture->y.data[2 * picture->y.stride + 35], testing::kMark);
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

TEST_F(FilterCompositorTest, HandlersMayAnswerLaterAndInAnyOrder) {
  const auto queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT);
  const auto source = filtered([queue](const FilterRequestRef& request) {
    dispatch_async(queue, [request] { request->finishWithImage(request->sourceImage(), nullptr); });
  });
  EXPECT_EQ(serveAll(*source).numbers, numbers(0, 30));
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
  class Asset : public AVAsset {
   public:
    CMTime duration() const override { return seconds(10); }
    std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override { return tracks_; }
    std::vector<std::shared_ptr<AVAssetTrack>> tracks_;
  };
  class Track : public TurnedTrack {
   public:
    explicit Track(float rate) : TurnedTrack({}, {0, 1, -1, 0, 36, 0}), rate_(rate) {}
    float nominalFrameRate() const override { return rate_; }
    CGSize naturalSize() const override { return {64, 36}; }
    const float rate_;
  };
  const struct {
    float rate;
    CMTime frameDuration;
  } rows[] = {{25, seconds(1, 25)},
              {29.97003f, seconds(1001, 30000)},
              {23.976f, seconds(1001, 24000)},
              {12.5f, seconds(7200, 90000)},
              {0, seconds(1, 30)}};
  for (const auto& row : rows) {
    const auto asset = std::make_shared<Asset>();
    asset->tracks_ = {std::make_shared<Track>(row.rate)};
    const auto composition = AVMutableVideoComposition::videoCompositionWithAsset(asset, nullptr);
    EXPECT_EQ(CMTimeCompare(composition->frameDuration(), row.frameDuration), 0) << composition->frameDuration();
    EXPECT_EQ(composition->renderSize(), CGSizeMake(36, 64));
    EXPECT_FALSE(composition->customVideoCompositorClass());
  }
}

}  // namespace
}  // namespace vidloom
