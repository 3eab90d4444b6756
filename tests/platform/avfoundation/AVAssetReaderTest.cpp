#include "vidloom/platform/avfoundation/AVAssetReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/avfoundation/ReaderTesting.h"
#include "tests/platform/dispatch/DispatchTesting.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

/// An output whose samples, end and failure a test decides on.
class ScriptedOutput : public AVAssetReaderOutput {
 public:
  explicit ScriptedOutput(int sampleCount, std::optional<NSError> failure = std::nullopt)
      : source_(std::make_shared<Source>(sampleCount, std::move(failure))) {}
  const AVMediaType& mediaType() const override { return AVMediaTypeVideo; }

  bool fits_ = true;
  std::optional<NSError> problem_;
  CMTimeRange range_ = kCMTimeRangeInvalid;
  int cancellations() const { return source_->cancellations_; }
  void block() { source_->blocks_ = true; }
  const dispatch_semaphore_t& waiting() const { return source_->waiting_; }

 protected:
  bool fitsAsset(const std::shared_ptr<AVAsset>&) const override { return fits_; }
  std::shared_ptr<SampleSource> makeSource(const CMTimeRange& range, std::optional<NSError>* error) override {
    range_ = range;
    *error = problem_;
    return problem_ ? nullptr : source_;
  }

 private:
  struct Source : SampleSource {
    Source(int sampleCount, std::optional<NSError> failure) : left_(sampleCount), failure_(std::move(failure)) {}
    CMSampleBufferRef next(std::optional<NSError>* error) override {
      if (blocks_) {
        dispatch_semaphore_signal(waiting_);
        dispatch_semaphore_wait(cancelled_, DISPATCH_TIME_FOREVER);
        return nullptr;
      }
      if (left_-- > 0) return audioSample();
      *error = failure_;
      return nullptr;
    }
    void cancel() override {
      ++cancellations_;
      dispatch_semaphore_signal(cancelled_);
    }
    static CMSampleBufferRef audioSample() {
      AudioStreamBasicDescription stream{8000, kAudioFormatLinearPCM, 12, 2, 1, 2, 1, 16};
      CMFormatDescriptionRef description;
      CMSampleBufferRef sample;
      EXPECT_EQ(CMAudioFormatDescriptionCreate(stream, &description), 0);
      CMAudioSampleBufferCreateReady(std::make_shared<CMBlockBuffer>(std::vector<uint8_t>(2)), description, 1, kCMTimeZero,
                                     &sample);
      return sample;
    }
    int left_;
    std::optional<NSError> failure_;
    std::atomic<int> cancellations_{0};
    std::atomic<bool> blocks_{false};
    const dispatch_semaphore_t waiting_ = dispatch_semaphore_create(0), cancelled_ = dispatch_semaphore_create(0);
  };
  const std::shared_ptr<Source> source_;
};

class LastingAsset : public AVAsset {
 public:
  CMTime duration() const override { return CMTimeMake(10, 1); }
  std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override { return {}; }
};

class AVAssetReaderTest : public ::testing::Test {
 protected:
  std::shared_ptr<ScriptedOutput> add(int sampleCount, std::optional<NSError> failure = std::nullopt) {
    auto output = std::make_shared<ScriptedOutput>(sampleCount, std::move(failure));
    reader->addOutput(output);
    return output;
  }
  const std::shared_ptr<AVAssetReader> reader = AVAssetReader::initWithAsset(std::make_shared<LastingAsset>(), nullptr);
};

TEST_F(AVAssetReaderTest, IsCompletedWhenEveryOutputHasAnsweredNull) {
  const auto first = add(2), second = add(1);
  EXPECT_EQ(reader->status(), AVAssetReaderStatusUnknown);
  EXPECT_EQ(first->copyNextSampleBuffer(), nullptr) << "nothing before the start";
  ASSERT_TRUE(reader->startReading());
  EXPECT_TRUE(first->copyNextSampleBuffer());
  EXPECT_TRUE(first->copyNextSampleBuffer());
  EXPECT_EQ(reader->status(), AVAssetReaderStatusReading) << "the last sample is not the end";
  EXPECT_EQ(first->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(first->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(reader->status(), AVAssetReaderStatusReading) << "one output's end, asked for twice, is not the other's";
  EXPECT_TRUE(second->copyNextSampleBuffer());
  EXPECT_EQ(second->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
  EXPECT_EQ(reader->error(), std::nullopt);
  EXPECT_EQ(first->deliveredSampleCount(), 2);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
}

TEST_F(AVAssetReaderTest, AFailureEndsEveryOutput) {
  const auto good = add(5), bad = add(1, AVMakeError(AVErrorDecodeFailed, "spoiled"));
  ASSERT_TRUE(reader->startReading());
  EXPECT_TRUE(bad->copyNextSampleBuffer());
  EXPECT_EQ(bad->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(reader->status(), AVAssetReaderStatusFailed);
  ASSERT_TRUE(reader->error());
  EXPECT_EQ(reader->error()->localizedDescription(), "spoiled");
  EXPECT_EQ(good->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(good->cancellations(), 1);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), AVAssetReaderStatusFailed);
}

TEST_F(AVAssetReaderTest, CancellingWakesABlockedCopy) {
  const auto output = add(5);
  output->block();
  ASSERT_TRUE(reader->startReading());
  const auto done = dispatch_semaphore_create(0);
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [output, done] {
    EXPECT_EQ(output->copyNextSampleBuffer(), nullptr);
    dispatch_semaphore_signal(done);
  });
  ASSERT_TRUE(cameThrough(output->waiting()));
  reader->cancelReading();
  EXPECT_TRUE(cameThrough(done));
  EXPECT_EQ(reader->status(), AVAssetReaderStatusCancelled);
  EXPECT_EQ(reader->error(), std::nullopt);
}

TEST_F(AVAssetReaderTest, StartsOnceAndNotAfterACancellationOrWhereAnOutputCannotBeRead) {
  add(1);
  EXPECT_TRUE(reader->startReading());
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(reader->status(), AVAssetReaderStatusReading);
  const auto cancelled = AVAssetReader::initWithAsset(std::make_shared<LastingAsset>(), nullptr);
  cancelled->cancelReading();
  EXPECT_FALSE(cancelled->startReading());
  EXPECT_EQ(cancelled->status(), AVAssetReaderStatusCancelled);
}

TEST_F(AVAssetReaderTest, TakesOutputsOnlyWhereAndWhileTheyFit) {
  const auto foreign = std::make_shared<ScriptedOutput>(1);
  foreign->fits_ = false;
  EXPECT_FALSE(reader->canAddOutput(foreign));
  EXPECT_FALSE(reader->canAddOutput(nullptr));
  const auto taken = add(1);
  EXPECT_FALSE(reader->canAddOutput(taken));
  EXPECT_THAT(reader->outputs(), ::testing::ElementsAre(taken));
  ASSERT_TRUE(reader->startReading());
  EXPECT_FALSE(reader->canAddOutput(std::make_shared<ScriptedOutput>(1)));
}

TEST_F(AVAssetReaderTest, ReadsWhatTheRangeAndTheAssetHaveInCommon) {
  struct Row {
    CMTimeRange asked, read;
  };
  const auto range = [](int start, int duration) { return CMTimeRange{CMTimeMake(start, 1), CMTimeMake(duration, 1)}; };
  const Row rows[] = {
      {{kCMTimeZero, kCMTimePositiveInfinity}, range(0, 10)},     {range(2, 3), range(2, 3)},  {range(8, 30), range(8, 2)},
      {{CMTimeMake(4, 1), kCMTimePositiveInfinity}, range(4, 6)}, {range(-2, 5), range(0, 3)}, {range(11, 5), range(11, 0)},
  };
  for (const Row& row : rows) {
    const auto one = AVAssetReader::initWithAsset(std::make_shared<LastingAsset>(), nullptr);
    const auto output = std::make_shared<ScriptedOutput>(0);
    one->addOutput(output);
    one->setTimeRange(row.asked);
    ASSERT_TRUE(one->startReading());
    one->setTimeRange(range(1, 1));
    EXPECT_TRUE(CMTimeRangeEqual(one->timeRange(), row.asked)) << "no change after the start";
    EXPECT_TRUE(CMTimeRangeEqual(output->range_, row.read)) << output->range_;
  }
}

}  // namespace
}  // namespace vidloom
