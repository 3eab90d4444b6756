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
  AudioStreamBasicDescription stream;
  stream.mSampleRate = sampleRate;
  stream.mFormatID = kAudioFormatLinearPCM;
  stream.mChannelsPerFrame = 2;
  CMFormatDescriptionRef format;
  EXPECT_EQ(CMAudioFormatDescriptionCreate(stream, &format), 0);
  return format;
}

TEST(CMFormatDescription, DescribesPicturesAndSound) {
  const auto video = formatOf(makeImage());
  EXPECT_EQ(CMFormatDescriptionGetMediaType(video), kCMMediaType_Video);
  EXPECT_EQ(video->mediaSubType, kCVPixelFormatType_32BGRA);
  EXPECT_EQ(video->dimensions.width, 4);
  EXPECT_EQ(video->dimensions.height, 2);
  EXPECT_EQ(CMAudioFormatDescriptionGetStreamBasicDescription(video), nullptr);
  const auto audio = audioFormat(48000);
  EXPECT_EQ(CMFormatDescriptionGetMediaType(audio), kCMMediaType_Audio);
  ASSERT_NE(CMAudioFormatDescriptionGetStreamBasicDescription(audio), nullptr);
  EXPECT_EQ(CMAudioFormatDescriptionGetStreamBasicDescription(audio)->mSampleRate, 48000);
  CMFormatDescriptionRef none;
  EXPECT_EQ(CMVideoFormatDescriptionCreateForImageBuffer(nullptr, &none), kCMFormatDescriptionError_InvalidParameter);
}

TEST(CMSampleBuffer, HoldsOnePictureWithItsTimes) {
  const auto image = makeImage();
  CMSampleBufferRef sample;
  ASSERT_EQ(CMSampleBufferCreateForImageBuffer(image, true, formatOf(image), kTiming, &sample), 0);
  EXPECT_TRUE(CMSampleBufferIsValid(sample));
  EXPECT_EQ(CMSampleBufferGetImageBuffer(sample), image);
  EXPECT_EQ(CMSampleBufferGetDataBuffer(sample), nullptr);
  EXPECT_EQ(CMSampleBufferGetNumSamples(sample), 1);
  EXPECT_THAT(CMSampleBufferGetPresentationTimeStamp(sample), Is(CMTimeMake(7, 30)));
  EXPECT_THAT(CMSampleBufferGetDuration(sample), Is(CMTimeMake(1, 30)));
  EXPECT_THAT(CMSampleBufferGetDecodeTimeStamp(sample), Is(kCMTimeInvalid));
}

TEST(CMSampleBuffer, RefusesWhatDoesNotFitTogether) {
  const auto image = makeImage();
  const auto sound = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>(16));
  CMSampleBufferRef sample;
  EXPECT_EQ(CMSampleBufferCreateForImageBuffer(nullptr, true, formatOf(image), kTiming, &sample),
            kCMSampleBufferError_RequiredParameterMissing);
  EXPECT_EQ(CMSampleBufferCreateForImageBuffer(image, true, nullptr, kTiming, &sample),
            kCMSampleBufferError_RequiredParameterMissing);
  EXPECT_EQ(CMSampleBufferCreateForImageBuffer(image, true, formatOf(makeImage(6)), kTiming, &sample),
            kCMSampleBufferError_InvalidMediaFormat);
  EXPECT_EQ(CMSampleBufferCreateForImageBuffer(image, true, audioFormat(48000), kTiming, &sample),
            kCMSampleBufferError_InvalidMediaFormat);
  EXPECT_EQ(CMAudioSampleBufferCreateReady(sound, formatOf(image), 2, kCMTimeZero, &sample),
            kCMSampleBufferError_InvalidMediaFormat);
  EXPECT_EQ(CMAudioSampleBufferCreateReady(nullptr, audioFormat(48000), 2, kCMTimeZero, &sample),
            kCMSampleBufferError_RequiredParameterMissing);
  EXPECT_EQ(sample, nullptr);
}

TEST(CMSampleBuffer, LastsAsLongAsItsFramesOfSound) {
  const auto sound = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>(1024 * 8));
  for (const auto& [rate, seconds] : {std::pair{44100.0, CMTimeMake(1024, 44100)},
                                      std::pair{44.1e3 / 1.001, CMTimeMakeWithSeconds(1024 * 1.001 / 44.1e3, 1000000000)}}) {
    CMSampleBufferRef sample;
    ASSERT_EQ(CMAudioSampleBufferCreateReady(sound, audioFormat(rate), 1024, CMTimeMake(3, 2), &sample), 0);
    EXPECT_EQ(CMSampleBufferGetNumSamples(sample), 1024);
    EXPECT_EQ(CMSampleBufferGetDataBuffer(sample), sound);
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
  EXPECT_NE(CMSampleBufferInvalidate(nullptr), 0);
}

TEST(CMBlockBuffer, IsContiguousFromAnyOffset) {
  const auto block = std::make_shared<CMBlockBuffer>(std::vector<uint8_t>{1, 2, 3, 4, 5});
  size_t atOffset = 0, total = 0;
  uint8_t* data = nullptr;
  ASSERT_EQ(CMBlockBufferGetDataPointer(block, 2, &atOffset, &total, &data), 0);
  EXPECT_EQ(atOffset, 3u);
  EXPECT_EQ(total, 5u);
  EXPECT_EQ(data[2], 5);
  EXPECT_EQ(CMBlockBufferGetDataPointer(block, 5, &atOffset, &total, &data), kCMBlockBufferBadOffsetParameterErr);
  EXPECT_NE(CMBlockBufferGetDataPointer(nullptr, 0, &atOffset, &total, &data), 0);
}

}  // namespace
}  // namespace vidloom
