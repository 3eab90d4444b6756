#include "vidloom/platform/coremedia/CMSampleBuffer.h"

#include "tests/platform/coremedia/TimeTesting.h"

namespace vidloom {
namespace {

const CMSampleTimingInfo kTiming{CMTimeMake(1, 30), CMTimeMake(7, 30), kCMTimeInvalid};

CVPixelBufferRef makeImage(size_t width = 4) {
  CVPixelBufferRef image;
  CVPixelBufferCreate(width, 2, kCVPixelFormatType_32BGRA, {}, &image);
  return image;
}

CMFormatDescriptionRef formatOf(const CVPixelBufferRef& image) {
  CMFormatDescriptionRef format;
  EXPECT_EQ(CMVideoFormatDescriptionCreateForImageBuffer(image, &format), 0);
  return format;
}

CMFormatDescriptionRef audioFormat(double sampleRate) {
  CMFormatDescriptionRef format;
  EXPECT_EQ(CMAudioFormatDescriptionCreate({sampleRate, kAudioFormatLinearPCM, 0, 4, 1, 4, 2, 16}, &format), 0);
  return format;
}

TEST(CMSampleBuffer, RefusesWhatDoesNotFitTogether) {
  const auto image = makeImage();
  const auto sound = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>(16));
  CMSampleBufferRef sample;
  using Picture = std::tuple<CVPixelBufferRef, CMFormatDescriptionRef, OSStatus>;
  for (const auto& [buffer, format, status] : {Picture{nullptr, formatOf(image), kCMSampleBufferError_RequiredParameterMissing},
                                               Picture{image, nullptr, kCMSampleBufferError_RequiredParameterMissing},
                                               Picture{image, formatOf(makeImage(6)), kCMSampleBufferError_InvalidMediaFormat},
                                               Picture{image, audioFormat(48000), kCMSampleBufferError_InvalidMediaFormat}}) {
    EXPECT_EQ(CMSampleBufferCreateForImageBuffer(buffer, true, format, kTiming, &sample), status);
  }
  EXPECT_EQ(CMAudioSampleBufferCreateReady(sound, formatOf(image), 2, kCMTimeZero, &sample),
            kCMSampleBufferError_InvalidMediaFormat);
  EXPECT_EQ(CMAudioSampleBufferCreateReady(nullptr, audioFormat(48000), 2, kCMTimeZero, &sample),
            kCMSampleBufferError_RequiredParameterMissing);
}

TEST(CMSampleBuffer, LastsAsLongAsItsFramesOfSound) {
  const auto sound = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>(1024 * 8));
  for (const auto& [rate, seconds] : {std::pair{44100.0, CMTimeMake(1024, 44100)},
                                      std::pair{44.1e3 / 1.001, CMTimeMakeWithSeconds(1024 * 1.001 / 44.1e3, 1000000000)}}) {
    CMSampleBufferRef sample;
    ASSERT_EQ(CMAudioSampleBufferCreateReady(sound, audioFormat(rate), 1024, CMTimeMake(3, 2), &sample), 0);
    EXPECT_NEAR(CMTimeGetSeconds(CMSampleBufferGetDuration(sample)), CMTimeGetSeconds(seconds), 2e-9);
  }
}

TEST(CMSampleBuffer, IsEmptyOnceInvalidatedWhileWhatWasTakenStays) {
  const auto image = makeImage();
  CMSampleBufferRef sample;
  ASSERT_EQ(CMSampleBufferCreateForImageBuffer(image, true, formatOf(image), kTiming, &sample), 0);
  const auto taken = CMSampleBufferGetImageBuffer(sample);
  EXPECT_EQ(CMSampleBufferInvalidate(sample), 0);
  EXPECT_FALSE(CMSampleBufferIsValid(sample));
  EXPECT_EQ(CMSampleBufferGetImageBuffer(sample), nullptr);
  EXPECT_EQ(CMSampleBufferGetNumSamples(sample), 0);
  EXPECT_THAT(CMSampleBufferGetPresentationTimeStamp(sample), Is(kCMTimeInvalid));
  EXPECT_EQ(CVPixelBufferGetWidth(taken), 4u);
}

TEST(CMBlockBuffer, EndsAtItsLastByte) {
  const auto block = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>{1, 2, 3, 4, 5});
  size_t atOffset = 0, total = 0;
  uint8_t* data = nullptr;
  ASSERT_EQ(CMBlockBufferGetDataPointer(block, 4, &atOffset, &total, &data), 0);
  EXPECT_EQ(*data, 5);
  EXPECT_EQ(CMBlockBufferGetDataPointer(block, 5, &atOffset, &total, &data), kCMBlockBufferBadOffsetParameterErr);
}

}  // namespace
}  // namespace vidloom
