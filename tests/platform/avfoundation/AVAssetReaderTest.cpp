// The asset reader on files: states, exact frames, exact samples.
#include "vidloom/platform/avfoundation/AVAssetReader.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"

namespace vidloom::testing {
namespace {

using Outputs = std::vector<std::shared_ptr<AVAssetReaderOutput>>;

const CMTimeRange kWhole{kCMTimeZero, kCMTimePositiveInfinity};
const NSDictionary kFullRange = {{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}};
const NSDictionary kPcm16 = {{AVFormatIDKey, kAudioFormatLinearPCM}, {AVLinearPCMBitDepthKey, 16}, {AVLinearPCMIsFloatKey, false}};

NSDictionary changed(NSDictionary settings, const std::string& key, const std::any& value) {
  settings[key] = value;
  return settings;
}

std::shared_ptr<AVAssetReaderOutput> trackOutput(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType,
                                                 const NSDictionary& settings) {
  return AVAssetReaderTrackOutput::initWithTrack(asset->tracksWithMediaType(mediaType).front(), settings);
}

std::shared_ptr<AVMutableVideoComposition> videoComposition(CGSize renderSize, CMTime frameDuration) {
  auto composition = AVMutableVideoComposition::videoComposition();
  composition->setRenderSize(renderSize);
  composition->setFrameDuration(frameDuration);
  return composition;
}

/// Shows the asset's first video track as it is, 30 times a second.
std::shared_ptr<AVAssetReaderVideoCompositionOutput> composedOutput(const std::shared_ptr<AVAsset>& asset,
                                                                    const AVVideoCompositingClass& compositor = {}) {
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeVideo);
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  instruction->setTimeRange({kCMTimeZero, CMTimeMake(3600, 1)});
  instruction->setLayerInstructions(
      {AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(tracks.front())});
  const auto composition = videoComposition({320, 180}, CMTimeMake(1, 30));
  composition->setInstructions({instruction});
  composition->setCustomVideoCompositorClass(compositor);
  auto output = AVAssetReaderVideoCompositionOutput::initWithVideoTracks(tracks, kFullRange);
  output->setVideoComposition(composition);
  return output;
}

std::shared_ptr<AVAssetReaderOutput> mixOutput(const std::shared_ptr<AVAsset>& asset) {
  return AVAssetReaderAudioMixOutput::initWithAudioTracks(asset->tracksWithMediaType(AVMediaTypeAudio), std::nullopt);
}

std::shared_ptr<AVAssetReader> readerOf(const std::shared_ptr<AVAsset>& asset, const Outputs& outputs) {
  const auto reader = AVAssetReader::initWithAsset(asset, nullptr);
  for (const auto& output : outputs) reader->addOutput(output);
  return reader;
}

std::vector<CMSampleBufferRef> drain(const std::shared_ptr<AVAssetReaderOutput>& output) {
  std::vector<CMSampleBufferRef> samples;
  while (const auto sample = output->copyNextSampleBuffer()) samples.push_back(sample);
  return samples;
}

int frameIndex(const CMSampleBufferRef& sample) {
  return readFrameIndex(*CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample)));
}

std::vector<int16_t> ramp(size_t count) {
  std::vector<int16_t> samples(count);
  for (size_t i = 0; i < count; ++i) samples[i] = static_cast<int16_t>(i * 7919);
  return samples;
}

TEST(AVAssetReader, IsCompletedWhenEveryOutputHasAnsweredNull) {
  const auto asset = AVURLAsset::initWithURL(writeWav("short.wav", 8000, 1, ramp(100)));
  const auto first = trackOutput(asset, AVMediaTypeAudio, kPcm16), second = mixOutput(asset);
  const auto reader = readerOf(asset, {first, second});
  EXPECT_EQ(first->copyNextSampleBuffer(), nullptr) << "nothing before the start";
  ASSERT_TRUE(reader->startReading());
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(drain(first).size(), 1u);
  EXPECT_EQ(first->copyNextSampleBuffer(), nullptr);
  EXPECT_TRUE(second->copyNextSampleBuffer());
  EXPECT_EQ(reader->status(), AVAssetReaderStatusReading) << "the last sample is not the end, nor one output's the other's";
  EXPECT_EQ(second->copyNextSampleBuffer(), nullptr);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  EXPECT_EQ(first->deliveredSampleCount(), 1);
}

TEST(AVAssetReader, AFailureEndsEveryOutput) {
  const auto composition = AVMutableComposition::composition();
  Outputs outputs;
  for (const char* name : {"kept.wav", "lost.wav"}) {
    const auto asset = AVURLAsset::initWithURL(writeWav(name, 44100, 1, ramp(100000)));
    const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
    ASSERT_TRUE(track->insertTimeRange(kWhole, asset->tracks().front(), kCMTimeZero, nullptr));
    outputs.push_back(AVAssetReaderTrackOutput::initWithTrack(track, kPcm16));
  }
  std::filesystem::remove(scratchFolder() / "lost.wav");
  const auto reader = readerOf(composition, outputs);
  ASSERT_TRUE(reader->startReading());
  EXPECT_TRUE(outputs[0]->copyNextSampleBuffer());
  EXPECT_EQ(outputs[1]->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(outputs[0]->copyNextSampleBuffer(), nullptr);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), AVAssetReaderStatusFailed);
  EXPECT_NE(reader->error().value_or(NSError{}).localizedDescription().find("lost.wav"), std::string::npos);
}

TEST(AVAssetReader, TakesTheAssetsOwnTracksOfTheRightKindOnceAndUntilItStarts) {
  const auto clip = makeClip({.frameCount = 3, .sound = noise(4800, 1)});
  const auto asset = AVURLAsset::initWithURL(clip), other = AVURLAsset::initWithURL(clip);
  const auto reader = AVAssetReader::initWithAsset(asset, nullptr);
  const auto takes = [&](const std::shared_ptr<AVAsset>& from, const AVMediaType& mixed) {
    const auto video = from->tracksWithMediaType(AVMediaTypeVideo);
    return std::array{
        reader->canAddOutput(AVAssetReaderTrackOutput::initWithTrack(video.front(), kFullRange)),
        reader->canAddOutput(AVAssetReaderVideoCompositionOutput::initWithVideoTracks(video, std::nullopt)),
        reader->canAddOutput(AVAssetReaderAudioMixOutput::initWithAudioTracks(from->tracksWithMediaType(mixed), std::nullopt))};
  };
  EXPECT_EQ(takes(other, AVMediaTypeAudio), (std::array{false, false, false}));
  EXPECT_EQ(takes(asset, AVMediaTypeAudio), (std::array{true, true, true}));
  EXPECT_EQ(takes(asset, AVMediaTypeVideo), (std::array{true, true, false})) << "pictures in a mix";
  const auto taken = mixOutput(asset);
  for (int i = 0; i < 2; ++i) reader->addOutput(taken);
  EXPECT_EQ(reader->outputs(), Outputs{taken});
  ASSERT_TRUE(reader->startReading());
  EXPECT_FALSE(reader->canAddOutput(mixOutput(asset)));
}

/// A host that never answers.
struct SilentCompositor : AVVideoCompositing {
  explicit SilentCompositor(dispatch_semaphore_t toSignal) : asked(std::move(toSignal)) {}
  NSDictionary sourcePixelBufferAttributes() const override { return kFullRange; }
  NSDictionary requiredPixelBufferAttributesForRenderContext() const override { return kFullRange; }
  void startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) override {
    requests.push_back(request);
    dispatch_semaphore_signal(asked);
  }
  const dispatch_semaphore_t asked;
  std::vector<std::shared_ptr<AVAsynchronousVideoCompositionRequest>> requests;
};

TEST(AVAssetReader, CancellingWakesACopyThatWaitsForAHost) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 3}));
  const auto asked = dispatch_semaphore_create(0), done = dispatch_semaphore_create(0);
  const auto output = composedOutput(asset, {"Silent", [asked] { return std::make_shared<SilentCompositor>(asked); }});
  output->setCompositorTimeout(kCMTimePositiveInfinity);
  const auto reader = readerOf(asset, {output});
  ASSERT_TRUE(reader->startReading());
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [output, done] {
    EXPECT_EQ(output->copyNextSampleBuffer(), nullptr);
    dispatch_semaphore_signal(done);
  });
  ASSERT_TRUE(cameThrough(asked));
  reader->cancelReading();
  EXPECT_TRUE(cameThrough(done));
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCancelled);
  EXPECT_EQ(reader->error(), std::nullopt);
}

TEST(AVAssetReader, CanBeCancelledAtAnyMoment) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 90, .gop = 45, .sound = noise(3 * 48000, 5)}));
  for (int samplesBefore = 0; samplesBefore < 24; ++samplesBefore) {
    const Outputs outputs{composedOutput(asset), mixOutput(asset)};
    auto reader = readerOf(asset, outputs);
    ASSERT_TRUE(reader->startReading());
    const auto reached = dispatch_semaphore_create(0);
    const auto pumps = dispatch_group_create();
    for (const auto& output : outputs) {
      dispatch_group_async(pumps, dispatch_get_global_queue(QOS_CLASS_DEFAULT), [output, reached, samplesBefore] {
        for (int i = 0; i < samplesBefore && output->copyNextSampleBuffer(); ++i) continue;
        dispatch_semaphore_signal(reached);
        drain(output);
      });
    }
    ASSERT_TRUE(cameThrough(reached));
    reader->cancelReading();
    EXPECT_EQ(dispatch_group_wait(pumps, dispatch_time(DISPATCH_TIME_NOW, kSafetyNs)), 0) << samplesBefore;
    const AVAssetReaderStatus status = reader->status();  // a slow cancellation finds everything read
    EXPECT_TRUE(status == AVAssetReaderStatusCancelled || status == AVAssetReaderStatusCompleted) << status;
    reader.reset();
    EXPECT_EQ(outputs.front()->copyNextSampleBuffer(), nullptr);
  }
}

TEST(AVAssetReaderTrackOutput, GivesFramesAtTheirOwnTimesAndTheFirstAtTheRangesStart) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 45, .bFrames = 3}));
  const auto settings =
      changed(changed(kFullRange, kCVPixelBufferWidthKey, 160.0), kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_32BGRA);
  const auto at = [](int64_t n) { return CMTimeMake(n, 30); };
  const struct {
    CMTimeRange range;
    int firstFrame;
    std::vector<CMTime> times;
  } rows[] = {{{kCMTimeZero, CMTimeMake(1, 10)}, 0, {at(0), at(1), at(2)}},
              {{CMTimeMake(1, 20), CMTimeMake(1, 10)}, 1, {CMTimeMake(1, 20), at(2), at(3), at(4)}},
              {{at(43), CMTimeMake(2, 1)}, 43, {at(43), at(44)}},
              {{at(7), at(0)}, 0, {}}};
  for (const auto& row : rows) {
    const auto output = trackOutput(asset, AVMediaTypeVideo, changed(settings, kCVPixelBufferHeightKey, 120.0));
    const auto reader = readerOf(asset, {output});
    reader->setTimeRange(row.range);
    ASSERT_TRUE(reader->startReading());
    const auto samples = drain(output);
    ASSERT_EQ(samples.size(), row.times.size()) << row.range;
    for (size_t i = 0; i < samples.size(); ++i) {
      EXPECT_EQ(frameIndex(samples[i]), row.firstFrame + static_cast<int>(i)) << row.range;
      EXPECT_EQ(CVPixelBufferGetWidth(CMSampleBufferGetImageBuffer(samples[i])), 160u) << "the size of the settings";
      const CMTime time = CMSampleBufferGetPresentationTimeStamp(samples[i]);
      EXPECT_EQ(CMTimeCompare(time, row.times[i]), 0) << time;
      const CMTime end = i + 1 < samples.size() ? row.times[i + 1] : CMTimeMinimum(CMTimeRangeGetEnd(row.range), asset->duration());
      EXPECT_EQ(CMTimeCompare(CMTimeAdd(time, CMSampleBufferGetDuration(samples[i])), end), 0) << row.range;
    }
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  }
}

TEST(AVAssetReaderTrackOutput, GivesEverySampleOfSoundThatTheRangeAndTheFileHaveInCommon) {
  const auto samples = ramp(3 * 30011);
  const auto asset = AVURLAsset::initWithURL(writeWav("three.wav", 22050, 3, samples));
  const struct {
    CMTimeRange range;
    int64_t first, end;
  } rows[] = {{kWhole, 0, 30011},
              {{CMTimeMake(10001, 22050), CMTimeMake(500, 22050)}, 10001, 10501},
              {{CMTimeMake(1, 7), CMTimeMake(1, 7)}, 3150, 6300},
              {{CMTimeMake(20000, 22050), kCMTimePositiveInfinity}, 20000, 30011},
              {{CMTimeMake(20000, 22050), CMTimeMake(8, 1)}, 20000, 30011},
              {{CMTimeMake(-1, 7), CMTimeMake(2, 7)}, 0, 3150},
              {{CMTimeMake(2, 1), CMTimeMake(1, 1)}, 0, 0}};
  for (const auto& row : rows) {
    const auto output = trackOutput(asset, AVMediaTypeAudio, kPcm16);
    const auto reader = readerOf(asset, {output});
    reader->setTimeRange(row.range);
    ASSERT_TRUE(reader->startReading());
    reader->setTimeRange(kCMTimeRangeZero);
    EXPECT_TRUE(CMTimeRangeEqual(reader->timeRange(), row.range)) << "no change after the start";
    std::vector<int16_t> sound;
    for (const auto& sample : drain(output)) {
      const auto& bytes = CMSampleBufferGetDataBuffer(sample)->bytes();
      const auto* values = reinterpret_cast<const int16_t*>(bytes.data());
      sound.insert(sound.end(), values, values + bytes.size() / sizeof(int16_t));
    }
    EXPECT_EQ(sound, std::vector<int16_t>(samples.begin() + 3 * row.first, samples.begin() + 3 * row.end)) << row.range;
  }
}

TEST(AVAssetReaderTrackOutput, RefusesSettingsThatCannotBeHonoured) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 3, .sound = noise(4800, 1)}));
  using Row = std::pair<AVMediaType, NSDictionary>;
  for (const auto& [mediaType, settings] :
       {Row{AVMediaTypeVideo, {}}, Row{AVMediaTypeVideo, changed({}, kCVPixelBufferPixelFormatTypeKey, 1)},
        Row{AVMediaTypeAudio, {}}, Row{AVMediaTypeAudio, changed(kPcm16, AVLinearPCMIsBigEndianKey, true)},
        Row{AVMediaTypeAudio, changed(kPcm16, AVLinearPCMIsNonInterleaved, true)},
        Row{AVMediaTypeAudio, changed(kPcm16, AVLinearPCMBitDepthKey, 24)},
        Row{AVMediaTypeAudio, changed(kPcm16, AVFormatIDKey, kAudioFormatMPEG4AAC)}}) {
    const auto reader = readerOf(asset, {trackOutput(asset, mediaType, settings)});
    EXPECT_FALSE(reader->startReading());
    reader->cancelReading();
    EXPECT_EQ(reader->status(), AVAssetReaderStatusFailed);
    EXPECT_EQ(reader->error().value_or(NSError{}).code(), AVErrorUnsupportedOutputSettings);
  }
}

TEST(AVAssetReaderVideoCompositionOutput, ShowsTheExactFrameOfCutsAtOddTimes) {
  const std::tuple<const char*, int64_t, int64_t> sources[] = {
      {"24", 24, 1}, {"25", 25, 1}, {"30000/1001", 30000, 1001}, {"50", 50, 1}, {"60", 60, 1}};
  std::mt19937 random(11);
  for (const auto& [rate, numerator, denominator] : sources) {
    const auto asset =
        AVURLAsset::initWithURL(makeClip({.frameCount = 120, .frameRate = rate, .gop = 40, .bFrames = 3, .openGop = true}));
    const auto composition = AVMutableComposition::composition();
    const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    std::vector<int> expected;
    int64_t target = 0;  // in 1/1009 s
    for (int i = 0; i < 10; ++i) {
      const int64_t start = random() % 1500, length = 50 + random() % 400;
      ASSERT_TRUE(track->insertTimeRange({CMTimeMake(start, 1001), CMTimeMake(length, 1009)}, asset->tracks().front(),
                                         kCMTimeInvalid, nullptr));
      // frame = floor((n / 30 - target + start) x rate), in whole numbers.
      for (int64_t n = std::ssize(expected); n * 1009 < (target + length) * 30; ++n) {
        const int64_t time = n * 1009 * 1001 - target * 30 * 1001 + start * 30 * 1009;
        expected.push_back(static_cast<int>(time * numerator / (30 * INT64_C(1009) * 1001 * denominator)));
      }
      target += length;
    }
    const auto output = composedOutput(composition);
    const auto reader = readerOf(composition, {output});
    ASSERT_TRUE(reader->startReading());
    std::vector<int> shown;
    while (const auto sample = output->copyNextSampleBuffer()) shown.push_back(frameIndex(sample));
    EXPECT_EQ(shown, expected) << rate;
  }
}

TEST(AVAssetReaderVideoCompositionOutput, NeedsAVideoCompositionThatMakesSenseAndKeepsTheCompositorOfAClass) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 3}));
  const auto output = AVAssetReaderVideoCompositionOutput::initWithVideoTracks(asset->tracks(), std::nullopt);
  output->setVideoComposition(videoComposition({0, 180}, CMTimeMake(1, 30)));
  output->setVideoComposition(videoComposition({320, 180}, kCMTimeZero));
  EXPECT_EQ(output->videoComposition(), nullptr);
  EXPECT_FALSE(readerOf(asset, {AVAssetReaderVideoCompositionOutput::initWithVideoTracks(asset->tracks(), {})})->startReading());
  const auto composition = videoComposition({320, 180}, CMTimeMake(1, 30));
  const auto compositorOf = [&](const char* name) {
    composition->setCustomVideoCompositorClass({name, [] { return std::make_shared<AVVideoCompositing>(); }});
    output->setVideoComposition(composition);
    return output->customVideoCompositor();
  };
  const auto first = compositorOf("One");
  ASSERT_TRUE(first);
  EXPECT_EQ(compositorOf("One"), first);
  EXPECT_NE(compositorOf("Other"), first);
}

}  // namespace
}  // namespace vidloom::testing
