#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/avfoundation/ReaderTesting.h"
#include "tests/platform/dispatch/DispatchTesting.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using testing::compositionOf;
using testing::firstTrack;
using testing::makeClip;
using testing::pcmSettings;
using testing::plainVideoComposition;
using testing::readFrames;
using testing::ReadFrames;
using testing::readSound;
using testing::startedReader;
using testing::videoSettings;

constexpr OSType kFull = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;

std::vector<int> indices(int first, int end) {
  std::vector<int> all;
  for (int i = first; i < end; ++i) all.push_back(i);
  return all;
}

std::shared_ptr<AVAssetReaderTrackOutput> trackOutput(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType,
                                                      const NSDictionary& settings) {
  return AVAssetReaderTrackOutput::initWithTrack(firstTrack(asset, mediaType), settings);
}

std::shared_ptr<AVAssetReaderVideoCompositionOutput> composedOutput(const std::shared_ptr<AVAsset>& asset, CMTime frameDuration,
                                                                    CGSize renderSize = {320, 180}) {
  auto output =
      AVAssetReaderVideoCompositionOutput::initWithVideoTracks(asset->tracksWithMediaType(AVMediaTypeVideo), videoSettings(kFull));
  output->setVideoComposition(plainVideoComposition(asset, renderSize, frameDuration));
  return output;
}

TEST(AVAssetReaderTrackOutput, GivesFramesAtTheirOwnTimesAndTheFirstAtTheRangesStart) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 45, .bFrames = 3}));
  struct Row {
    CMTimeRange range;
    std::vector<int> frames;
    std::vector<CMTime> times;
  };
  const auto at = [](int64_t n) { return CMTimeMake(n, 30); };
  const Row rows[] = {
      {{kCMTimeZero, CMTimeMake(1, 10)}, {0, 1, 2}, {at(0), at(1), at(2)}},
      {{CMTimeMake(1, 20), CMTimeMake(1, 10)}, {1, 2, 3, 4}, {CMTimeMake(1, 20), at(2), at(3), at(4)}},
      {{at(43), CMTimeMake(2, 1)}, {43, 44}, {at(43), at(44)}},
      {{at(7), at(0)}, {}, {}},
  };
  for (const Row& row : rows) {
    NSDictionary settings = videoSettings(kCVPixelFormatType_32BGRA);
    settings[kCVPixelBufferWidthKey] = 160.0;
    settings[kCVPixelBufferHeightKey] = 120.0;
    const auto output = trackOutput(asset, AVMediaTypeVideo, settings);
    const auto reader = startedReader(asset, output, row.range);
    ASSERT_TRUE(reader);
    const ReadFrames read = readFrames(*output);
    EXPECT_EQ(read.indices, row.frames) << row.range;
    EXPECT_EQ(read.size, row.frames.empty() ? CGSizeZero : CGSizeMake(160, 120)) << "the size of the settings";
    ASSERT_EQ(read.times.size(), row.times.size());
    for (size_t i = 0; i < row.times.size(); ++i) EXPECT_EQ(CMTimeCompare(read.times[i], row.times[i]), 0) << read.times[i];
    if (!read.times.empty()) {
      const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(row.range), asset->duration());
      EXPECT_EQ(CMTimeCompare(CMTimeAdd(read.times.back(), read.durations.back()), end), 0) << row.range;
    }
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  }
}

TEST(AVAssetReaderTrackOutput, GivesEverySampleOfSoundInTheFilesOwnForm) {
  std::vector<int16_t> samples;
  for (int i = 0; i < 3 * 30011; ++i) samples.push_back(static_cast<int16_t>(i * 7919));
  const auto asset = AVURLAsset::initWithURL(testing::writeWav("three.wav", 22050, 3, samples));
  struct Row {
    CMTimeRange range;
    int64_t first, end;
  };
  const Row rows[] = {{{kCMTimeZero, kCMTimePositiveInfinity}, 0, 30011},
                      {{CMTimeMake(10001, 22050), CMTimeMake(500, 22050)}, 10001, 10501},
                      {{CMTimeMake(1, 7), CMTimeMake(1, 7)}, 3150, 6300}};
  for (const Row& row : rows) {
    const auto output = trackOutput(asset, AVMediaTypeAudio, pcmSettings(false));
    const auto reader = startedReader(asset, output, row.range);
    ASSERT_TRUE(reader);
    EXPECT_EQ(readSound<int16_t>(*output), std::vector<int16_t>(samples.begin() + 3 * row.first, samples.begin() + 3 * row.end));
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  }
}

TEST(AVAssetReaderTrackOutput, RefusesSettingsThatCannotBeHonoured) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 3, .sound = testing::noise(4800, 1)}));
  NSDictionary big = pcmSettings(false), apart = pcmSettings(true), deep = pcmSettings(false), packed = pcmSettings(false);
  big[AVLinearPCMIsBigEndianKey] = true;
  apart[AVLinearPCMIsNonInterleaved] = true;
  deep[AVLinearPCMBitDepthKey] = 24;
  packed[AVFormatIDKey] = kAudioFormatMPEG4AAC;
  const std::pair<AVMediaType, NSDictionary> rows[] = {{AVMediaTypeVideo, {}},    {AVMediaTypeVideo, videoSettings(1)},
                                                       {AVMediaTypeAudio, {}},    {AVMediaTypeAudio, big},
                                                       {AVMediaTypeAudio, apart}, {AVMediaTypeAudio, deep},
                                                       {AVMediaTypeAudio, packed}};
  for (const auto& [mediaType, settings] : rows) {
    const auto reader = AVAssetReader::initWithAsset(asset, nullptr);
    reader->addOutput(trackOutput(asset, mediaType, settings));
    EXPECT_FALSE(reader->startReading());
    EXPECT_EQ(reader->error().value_or(NSError{}).code(), AVErrorUnsupportedOutputSettings);
  }
}

TEST(AVAssetReaderVideoCompositionOutput, ShowsTheExactFrameOfCutsAtOddTimes) {
  struct Source {
    const char* rate;
    int64_t numerator, denominator;
  };
  const Source sources[] = {{"24", 24, 1}, {"25", 25, 1}, {"30000/1001", 30000, 1001}, {"50", 50, 1}, {"60", 60, 1}};
  std::mt19937 random(11);
  for (const Source& source : sources) {
    const auto file = makeClip({.frameCount = 120, .frameRate = source.rate, .gop = 40, .bFrames = 3, .openGop = true});
    std::vector<testing::Piece> pieces;
    for (int i = 0; i < 10; ++i) {
      pieces.push_back({file, {CMTimeMake(static_cast<int64_t>(random() % 1500), 1001), CMTimeMake(50 + random() % 400, 1009)}});
    }
    const auto composition = compositionOf(pieces, AVMediaTypeVideo);
    const auto output = composedOutput(composition, CMTimeMake(1, 30));
    const auto reader = startedReader(composition, output);
    ASSERT_TRUE(reader);
    // frame = floor((n / 30 - target + start) x rate), in whole numbers.
    std::vector<int> expected;
    int64_t target = 0;  // in 1/1009 s
    for (const auto& piece : pieces) {
      const int64_t end = target + piece.source.duration.value;
      while (static_cast<int64_t>(expected.size()) * 1009 < end * 30) {
        const auto n = static_cast<int64_t>(expected.size());
        const int64_t scale = 30 * INT64_C(1009) * 1001;
        const int64_t time = n * 1009 * 1001 - target * 30 * 1001 + piece.source.start.value * 30 * 1009;
        expected.push_back(static_cast<int>(time * source.numerator / (scale * source.denominator)));
      }
      target = end;
    }
    EXPECT_EQ(readFrames(*output).indices, expected) << source.rate;
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  }
}

TEST(AVAssetReaderVideoCompositionOutput, RampsOfManySegmentsShowEveryFrameOnce) {
  const auto composition =
      compositionOf({{makeClip({.frameCount = 120, .bFrames = 3}), {kCMTimeZero, CMTimeMake(4, 1)}}}, AVMediaTypeVideo);
  const auto track = std::dynamic_pointer_cast<AVMutableCompositionTrack>(composition->tracks().front());
  for (int i = 39; i >= 0; --i) track->scaleTimeRange({CMTimeMake(i, 10), CMTimeMake(1, 10)}, CMTimeMake(i % 3 + 1, 10));
  const auto output = composedOutput(composition, CMTimeMake(1, 30));
  const auto reader = startedReader(composition, output);
  std::vector<int> expected;
  for (int i = 0; i < 40; ++i) {
    const int slowness = i % 3 + 1;
    for (int n = 0; n < 3 * slowness; ++n) expected.push_back(3 * i + n / slowness);
  }
  EXPECT_EQ(readFrames(*output).indices, expected);
}

TEST(AVAssetReaderVideoCompositionOutput, NeedsAVideoCompositionThatMakesSenseAndKeepsTheCompositorOfAClass) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 3}));
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeVideo);
  const auto output = AVAssetReaderVideoCompositionOutput::initWithVideoTracks(tracks, std::nullopt);
  for (const auto& [size, duration] : {std::pair{CGSize{0, 180}, CMTimeMake(1, 30)}, std::pair{CGSize{320, 180}, kCMTimeZero}}) {
    output->setVideoComposition(plainVideoComposition(asset, size, duration));
    EXPECT_EQ(output->videoComposition(), nullptr);
  }
  EXPECT_EQ(startedReader(asset, AVAssetReaderVideoCompositionOutput::initWithVideoTracks(tracks, std::nullopt)), nullptr);
  const auto composition = plainVideoComposition(asset, {320, 180}, CMTimeMake(1, 30));
  std::shared_ptr<AVVideoCompositing> before;
  const std::pair<const char*, bool> uses[] = {{"One", false}, {"One", true}, {"Other", false}};
  for (const auto& [name, same] : uses) {
    composition->setCustomVideoCompositorClass({name, [] { return std::make_shared<AVVideoCompositing>(); }});
    output->setVideoComposition(composition);
    ASSERT_TRUE(output->customVideoCompositor());
    EXPECT_EQ(output->customVideoCompositor() == before, same) << name;
    before = output->customVideoCompositor();
  }
}

TEST(AVAssetReader, TakesTheAssetsOwnTracksOfTheRightKindOnly) {
  const auto clip = makeClip({.frameCount = 3, .sound = testing::noise(4800, 1)});
  const auto asset = AVURLAsset::initWithURL(clip), other = AVURLAsset::initWithURL(clip);
  const auto reader = AVAssetReader::initWithAsset(asset, nullptr);
  const auto takes = [&](const std::shared_ptr<AVAsset>& from, const AVMediaType& mixed) {
    const auto video = from->tracksWithMediaType(AVMediaTypeVideo);
    return std::array{
        reader->canAddOutput(AVAssetReaderTrackOutput::initWithTrack(video.front(), videoSettings(kFull))),
        reader->canAddOutput(AVAssetReaderVideoCompositionOutput::initWithVideoTracks(video, std::nullopt)),
        reader->canAddOutput(AVAssetReaderAudioMixOutput::initWithAudioTracks(from->tracksWithMediaType(mixed), std::nullopt))};
  };
  EXPECT_EQ(takes(other, AVMediaTypeAudio), (std::array{false, false, false}));
  EXPECT_EQ(takes(asset, AVMediaTypeAudio), (std::array{true, true, true}));
  EXPECT_EQ(takes(asset, AVMediaTypeVideo), (std::array{true, true, false})) << "pictures in a mix";
}

TEST(AVAssetReader, OneOutputCanBeDrainedWhileAnotherWaits) {
  const auto clip = makeClip({.frameCount = 90, .sound = testing::noise(3 * 48000, 5)});
  const auto asset = AVURLAsset::initWithURL(clip);
  const auto pictures = composedOutput(asset, CMTimeMake(1, 30));
  const auto sound = AVAssetReaderAudioMixOutput::initWithAudioTracks(asset->tracksWithMediaType(AVMediaTypeAudio), std::nullopt);
  const auto reader = AVAssetReader::initWithAsset(asset, nullptr);
  reader->addOutput(pictures);
  reader->addOutput(sound);
  ASSERT_TRUE(reader->startReading());
  EXPECT_EQ(readFrames(*pictures).indices, indices(0, 90));
  EXPECT_EQ(reader->status(), AVAssetReaderStatusReading);
  EXPECT_EQ(readSound<float>(*sound).size(), 2u * 3 * 44100);
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
}

TEST(AVAssetReader, CanBeCancelledAtAnyMoment) {
  const auto asset = AVURLAsset::initWithURL(makeClip({.frameCount = 90, .gop = 45, .sound = testing::noise(3 * 48000, 5)}));
  for (int samplesBefore = 0; samplesBefore < 24; ++samplesBefore) {
    const auto pictures = composedOutput(asset, CMTimeMake(1, 30));
    const auto sound = AVAssetReaderAudioMixOutput::initWithAudioTracks(asset->tracksWithMediaType(AVMediaTypeAudio), std::nullopt);
    auto reader = AVAssetReader::initWithAsset(asset, nullptr);
    reader->addOutput(pictures);
    reader->addOutput(sound);
    ASSERT_TRUE(reader->startReading());
    const auto reached = dispatch_semaphore_create(0);
    const auto pumps = dispatch_group_create();
    for (const std::shared_ptr<AVAssetReaderOutput>& output : reader->outputs()) {
      dispatch_group_async(pumps, dispatch_get_global_queue(QOS_CLASS_DEFAULT), [output, reached, samplesBefore] {
        for (int i = 0; i < samplesBefore && output->copyNextSampleBuffer(); ++i) continue;
        dispatch_semaphore_signal(reached);
        while (output->copyNextSampleBuffer()) continue;
      });
    }
    ASSERT_TRUE(cameThrough(reached));
    reader->cancelReading();
    EXPECT_EQ(dispatch_group_wait(pumps, dispatch_time(DISPATCH_TIME_NOW, kSafetyNs)), 0) << samplesBefore;
    const AVAssetReaderStatus status = reader->status();  // a slow cancellation finds everything read
    EXPECT_TRUE(status == AVAssetReaderStatusCancelled || status == AVAssetReaderStatusCompleted) << status;
    reader.reset();
    EXPECT_EQ(pictures->copyNextSampleBuffer(), nullptr);
  }
}

TEST(AVAssetReaderAudioMixOutput, PlacesEverySampleOfPcmExactly) {
  std::vector<int16_t> samples;
  for (int i = 0; i < 2 * 44100; ++i) samples.push_back(static_cast<int16_t>(i * 31));
  const auto file = testing::writeWav("ramp.wav", 44100, 2, samples);
  const auto composition = compositionOf({{file, {CMTimeMake(100, 44100), CMTimeMake(1000, 44100)}},
                                          {file, {kCMTimeZero, CMTimeMake(500, 44100)}, CMTimeMake(2000, 44100)}},
                                         AVMediaTypeAudio);
  const auto output = AVAssetReaderAudioMixOutput::initWithAudioTracks(composition->tracks(), std::nullopt);
  const auto reader = startedReader(composition, output);
  const auto sound = readSound<float>(*output);
  ASSERT_EQ(sound.size(), 2u * 2500);
  for (size_t i = 0; i < sound.size(); ++i) {
    const size_t frame = i / 2;
    const float expected = frame < 1000   ? static_cast<float>(samples[i + 200]) / 32768.0f
                           : frame < 2000 ? 0.0f
                                          : static_cast<float>(samples[i - 4000]) / 32768.0f;
    ASSERT_EQ(sound[i], expected) << i;
  }
}

}  // namespace
}  // namespace vidloom
