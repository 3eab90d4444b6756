// How an analysis runs: what the host hears, when, and what it no longer hears.
#include "vidloom/audio/WaveformAnalyzer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>
#include <numeric>

#include "tests/audio/WaveformRecorder.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using ::testing::HasSubstr;
using testing::LogCapture;
using testing::WaveformRecorder;
using testing::writeWav;

std::filesystem::path tenSeconds() { return writeWav("ten.wav", 44100, 2, std::vector<int16_t>(882'000, 1000)); }

struct Analysis {
  std::shared_ptr<WaveformAnalyzer> analyzer;
  std::shared_ptr<WaveformRecorder> recorder = std::make_shared<WaveformRecorder>();
  explicit Analysis(const std::filesystem::path& file) : analyzer(WaveformAnalyzer::initWithAudioAssetURL(file)) {
    if (analyzer) analyzer->setDelegate(recorder);
  }
};

TEST(WaveformAnalyzer, ReportsProgressThatNeverGoesBackAndThenOneResult) {
  Analysis run(tenSeconds());
  ASSERT_TRUE(run.analyzer);
  run.analyzer->samples(100);
  ASSERT_TRUE(run.recorder->wait());
  const std::vector<double>& progress = run.recorder->progress;
  ASSERT_GT(progress.size(), 10U);
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  EXPECT_GT(progress.back(), 90.0);
  EXPECT_LE(progress.back(), 100.0);
  EXPECT_TRUE(run.recorder->isOnReadingQueue);
  EXPECT_EQ(run.recorder->lists.size(), 1U);
  EXPECT_TRUE(run.recorder->analyses.empty() && run.recorder->errors.empty());
}

TEST(WaveformAnalyzer, IsNotMadeForWhatHasNoSound) {
  const std::pair<std::filesystem::path, std::string> cases[] = {
      {testing::makeClip({}), "no audio track"},
      {testing::scratchFolder() / "missing.wav", "missing.wav"},
      {testing::writeFile("noise.wav", std::string(5000, 'x')), "noise.wav"}};
  for (const auto& [file, cause] : cases) {
    std::optional<NSError> error;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(WaveformAnalyzer::initWithAudioAssetURL(file, &error));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ERROR loading asset / audio track\n");
    ASSERT_TRUE(error);
    EXPECT_THAT(error->localizedDescription(), HasSubstr(cause));
    EXPECT_THAT(error->localizedDescription(), HasSubstr(file.filename().string()));
  }
}

TEST(WaveformAnalyzer, RunsOnce) {
  Analysis run(tenSeconds());
  run.analyzer->samples(100);
  ASSERT_TRUE(run.recorder->wait());
  const LogCapture log;
  run.analyzer->samples(50);
  ASSERT_TRUE(run.recorder->wait());
  ASSERT_EQ(run.recorder->lists.size(), 2U);
  EXPECT_EQ(run.recorder->lists[0].size(), 100U);
  EXPECT_TRUE(run.recorder->lists[1].empty());
  ASSERT_EQ(run.recorder->errors.size(), 1U);
  EXPECT_THAT(run.recorder->errors[0].localizedDescription(), HasSubstr("ten.wav"));
  EXPECT_TRUE(log.contains({"WaveformAnalyzer", "once", "ten.wav"}));
}

TEST(WaveformAnalyzer, GivesAnEmptyListAndTheReasonWhereReadingFailsOrMemoryRunsOut) {
  for (const bool memoryRunsOut : {false, true}) {
    Analysis run(tenSeconds());
    WaveformFFTSetting setting;
    setting.eachBlock = [&](const TempiFFT&, double) {
      if (memoryRunsOut) throw std::bad_alloc();
      run.analyzer->assetReader()->cancelReading();
    };
    ::testing::internal::CaptureStderr();
    run.analyzer->samples(100, setting);
    ASSERT_TRUE(run.recorder->wait());
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("ERROR: reading waveform audio data has failed "));
    EXPECT_TRUE(run.recorder->lists.front().empty());
    ASSERT_EQ(run.recorder->errors.size(), 1U);
    EXPECT_EQ(run.recorder->errors[0].code() == AVErrorOutOfMemory, memoryRunsOut);
    EXPECT_THAT(run.recorder->errors[0].localizedDescription(), HasSubstr(memoryRunsOut ? "ten.wav" : "cancelled"));
    EXPECT_TRUE(run.analyzer->error());
  }
}

TEST(WaveformAnalyzer, IsSilentOnceItIsGone) {
  for (const size_t reportsBefore : {1, 2, 20}) {
    Analysis run(tenSeconds());
    const std::weak_ptr<AVAssetReader> reader = run.analyzer->assetReader();
    const dispatch_semaphore_t isStarted = dispatch_semaphore_create(0);
    run.recorder->onProgress = [&] {
      if (run.recorder->progress.size() == 1) dispatch_semaphore_wait(isStarted, DISPATCH_TIME_FOREVER);
      if (run.recorder->progress.size() == reportsBefore) run.analyzer.reset();
    };
    run.analyzer->samples(100);
    dispatch_semaphore_signal(isStarted);
    ASSERT_TRUE(testing::endsReading(*run.recorder, reader));
    EXPECT_TRUE(run.recorder->lists.empty());
    EXPECT_EQ(run.recorder->progress.size(), reportsBefore);
  }
}

TEST(WaveformAnalyzer, IsSilentOnceItIsGoneThoughASecondRunWaitsToReport) {
  for (int i = 0; i < 20; ++i) {
    Analysis run(tenSeconds());
    const std::weak_ptr<AVAssetReader> reader = run.analyzer->assetReader();
    const dispatch_semaphore_t isStarted = dispatch_semaphore_create(0), isLater = dispatch_semaphore_create(0);
    run.recorder->onProgress = [&] {
      if (!run.analyzer) return;
      dispatch_semaphore_wait(isStarted, DISPATCH_TIME_FOREVER);
      run.analyzer->samples(1);
      dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED), [isLater] { dispatch_semaphore_signal(isLater); });
      dispatch_semaphore_wait(isLater, DISPATCH_TIME_FOREVER);
      run.analyzer.reset();
    };
    const LogCapture log;
    run.analyzer->samples(100);
    dispatch_semaphore_signal(isStarted);
    ASSERT_TRUE(testing::endsReading(*run.recorder, reader));
    EXPECT_EQ(run.recorder->progress.size(), 1U);
    EXPECT_TRUE(run.recorder->errors.empty() && run.recorder->lists.empty());
  }
}

TEST(WaveformAnalyzer, NeedsNoDelegate) {
  Analysis run(tenSeconds());
  const std::weak_ptr<WaveformRecorder> recorder = run.recorder;
  run.recorder.reset();
  EXPECT_TRUE(recorder.expired());
  run.analyzer->samples(100);
  EXPECT_TRUE(testing::eventually([&] { return run.analyzer->assetReader()->status() == AVAssetReaderStatusCompleted; }));
}

/// A second and a half of a tone on the left channel, of that frequency.
std::filesystem::path tone(double hertz, int sampleRate) {
  std::vector<int16_t> samples;
  for (int i = 0; i < sampleRate * 3 / 2; ++i) {
    samples.push_back(static_cast<int16_t>(std::lround(32767 * std::sin(2 * std::numbers::pi * hertz * i / sampleRate))));
    samples.push_back(0);
  }
  return writeWav("tone.wav", sampleRate, 2, samples);
}

TEST(WaveformAnalyzer, GathersSpectraOfOverlappingBlocksOrHandsThemOverOneByOne) {
  struct Case {
    int64_t size, hop;
    size_t blocks;
  };
  // 12,000 samples: every one is in a block, and no block lies wholly in another one.
  for (const auto& [size, hop, blocks] :
       {Case{1024, 512, 23}, Case{1024, 1024, 12}, Case{1024, 4000, 3}, Case{16384, 16384, 1}, Case{512, 1, 11489}}) {
    SCOPED_TRACE(::testing::Message() << size << " by " << hop);
    const auto file = tone(1000, 8000);
    Analysis gathering(file), streaming(file);
    WaveformFFTSetting setting;
    setting.size = size;
    setting.hop = hop;
    setting.numberOfBands = 40;
    setting.minFrequency = 0;
    setting.maxFrequency = 4000;
    gathering.analyzer->samples(10, setting);
    std::vector<std::vector<float>> bands;
    setting.eachBlock = [&](const TempiFFT& fft, double startSeconds) {
      EXPECT_DOUBLE_EQ(startSeconds, static_cast<double>(bands.size()) * static_cast<double>(setting.hop) / 8000);
      bands.push_back(*fft.bandMagnitudes());
    };
    streaming.analyzer->samples(10, setting);
    ASSERT_TRUE(gathering.recorder->wait() && streaming.recorder->wait());
    EXPECT_TRUE(streaming.recorder->analyses.at(0).fft->empty());
    const WaveformAnalysis& analysis = gathering.recorder->analyses.at(0);
    EXPECT_EQ(analysis.amplitudes, gathering.recorder->lists.front());
    ASSERT_EQ(analysis.fft->size(), blocks);
    ASSERT_EQ(bands.size(), blocks);
    for (size_t i = 0; i < blocks; ++i) ASSERT_EQ(bands[i], *(*analysis.fft)[i]->bandMagnitudes()) << i;
    const TempiFFT& first = *analysis.fft->front();
    EXPECT_EQ(first.magnitudes().size(), static_cast<size_t>(size / 2));
    const auto loudest = std::max_element(bands[0].begin(), bands[0].end());
    EXPECT_NEAR((*first.bandFrequencies())[static_cast<size_t>(loudest - bands[0].begin())], 1000, 51);
    // Half of full scale: the other channel is silent.
    const float windowSum = std::accumulate(first.window().begin(), first.window().end(), 0.0f);
    const float relativePower = first.magnitudeAtFrequency(1001) / (windowSum * windowSum);
    if (size == 1024) {
      EXPECT_NEAR(TempiFFT::toDecibels(relativePower), -6.02, 0.01);
    }
  }
}

TEST(WaveformAnalyzer, HandsOverNoSpectrumOnceItIsGone) {
  Analysis run(tenSeconds());
  const std::weak_ptr<AVAssetReader> reader = run.analyzer->assetReader();
  const dispatch_semaphore_t isStarted = dispatch_semaphore_create(0);
  int blocks = 0;
  WaveformFFTSetting setting;
  setting.hop = 1;
  setting.eachBlock = [&](const TempiFFT&, double) {
    const std::lock_guard lock(run.recorder->mutex);
    if (++blocks == 1) dispatch_semaphore_wait(isStarted, DISPATCH_TIME_FOREVER);
    if (blocks == 3) run.analyzer.reset();
  };
  run.analyzer->samples(1, setting);
  dispatch_semaphore_signal(isStarted);
  ASSERT_TRUE(testing::endsReading(*run.recorder, reader));
  EXPECT_EQ(blocks, 3);
}

}  // namespace
}  // namespace vidloom
