// When a client is asked for samples.
#include <gtest/gtest.h>

#include <atomic>

#include "tests/platform/avfoundation/WriterTesting.h"

namespace vidloom::testing {
namespace {

/// A client on one serial queue that appends a few frames a call and marks the input as finished after the last.
struct Client : std::enable_shared_from_this<Client> {
  std::shared_ptr<AVAssetWriterInput> input;
  std::shared_ptr<AVAssetWriter> writer;
  dispatch_queue_t queue = dispatch_queue_create("test.client", DISPATCH_QUEUE_SERIAL);
  int frames = 0, framesPerCall = 1, next = 0, calls = 0;
  int callsAfterStop = 0;
  std::atomic<int> running{0}, overlaps{0};
  dispatch_semaphore_t called = dispatch_semaphore_create(0);
  dispatch_semaphore_t done = dispatch_semaphore_create(0);

  void start() {
    input->requestMediaDataWhenReadyOnQueue(queue, [weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->serve();
    });
  }

  void serve() {
    if (++running > 1) ++overlaps;
    ++calls;
    if (writer->status() != AVAssetWriterStatusWriting) {
      ++callsAfterStop;
      dispatch_semaphore_signal(done);
    } else if (next == frames && frames > 0) {
      input->markAsFinished();
      dispatch_semaphore_signal(done);
    } else {
      for (int i = 0; i < framesPerCall && next < frames; ++i, ++next) {
        input->appendSampleBuffer(numberedSample(next, CMTimeMake(next, 30)));
      }
    }
    --running;
    dispatch_semaphore_signal(called);
  }

  /// Everything that was submitted to the queue so far has run.
  void drain() {
    dispatch_sync(queue, [] {});
  }
};

std::shared_ptr<Client> clientOf(const std::filesystem::path& movie, int frames, int framesPerCall) {
  auto client = std::make_shared<Client>();
  client->input = videoInput();
  client->writer = startedWriter(movie, {client->input});
  client->frames = frames;
  client->framesPerCall = framesPerCall;
  return client;
}

TEST(AVAssetWriterRequestTest, AClientIsAskedUntilItMarksTheInputAsFinished) {
  const auto movie = freshDestination();
  const auto client = clientOf(movie, 20, 3);
  client->start();
  dispatch_semaphore_wait(client->done, DISPATCH_TIME_FOREVER);
  finishAndWait(client->writer);
  client->drain();
  EXPECT_EQ(client->calls, 8) << "seven with frames and one that finds no more";
  EXPECT_EQ(client->overlaps, 0);
  EXPECT_EQ(decodedFrameIndices(movie).size(), 20u);
}

TEST(AVAssetWriterRequestTest, TwoInputsOnOneQueueAreServedByTurns) {
  const auto movie = freshDestination();
  const auto video = videoInput(), audio = audioInput();
  const auto writer = startedWriter(movie, {video, audio});
  const auto queue = dispatch_queue_create("test.both", DISPATCH_QUEUE_SERIAL);
  const auto group = dispatch_group_create();
  const SoundSamples sound = sine(440, 44100, 44100);
  const auto serve = [&](const std::shared_ptr<AVAssetWriterInput>& input, int count, const auto& sampleAt) {
    dispatch_group_enter(group);
    input->requestMediaDataWhenReadyOnQueue(queue, [=, next = std::make_shared<int>(0)] {
      if (*next < count) {
        EXPECT_TRUE(input->appendSampleBuffer(sampleAt((*next)++)));
        return;
      }
      input->markAsFinished();
      dispatch_group_leave(group);
    });
  };
  serve(video, 30, [](int i) { return numberedSample(i, CMTimeMake(i, 30)); });
  serve(audio, 10, [sound](int i) { return soundSample(sound, i * 4410, 4410, 44100); });
  dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(decodedFrameIndices(movie).size(), 30u);
}

TEST(AVAssetWriterRequestTest, AClientThatWaitsIsAskedOnceMoreWhenTheWritingStopsUnlessItHasFinished) {
  enum class Stop { cancel, failure, release, finished };
  for (const Stop stop : {Stop::cancel, Stop::failure, Stop::release, Stop::finished}) {
    const auto client = clientOf(freshDestination(), 0, 0);
    client->start();
    dispatch_semaphore_wait(client->called, DISPATCH_TIME_FOREVER);
    client->drain();
    EXPECT_EQ(client->calls, 1) << "a call that brought nothing is not repeated";
    if (stop == Stop::cancel) client->writer->cancelWriting();
    if (stop == Stop::failure) client->input->appendSampleBuffer(nullptr);
    if (stop == Stop::finished) {
      client->input->markAsFinished();
      client->writer->cancelWriting();
      client->drain();
      EXPECT_EQ(client->calls, 1) << "nobody is asked about a finished input";
    } else if (stop != Stop::release) {
      dispatch_semaphore_wait(client->done, DISPATCH_TIME_FOREVER);
      client->writer->cancelWriting();
      client->drain();
      EXPECT_EQ(client->callsAfterStop, 1);
      EXPECT_TRUE(client->input->isReadyForMoreMediaData()) << "or a client that looks at readiness first would wait for ever";
    }
  }
}

TEST(AVAssetWriterRequestTest, ARequestBeforeTheStartWaitsForIt) {
  auto client = std::make_shared<Client>();
  client->input = videoInput();
  client->writer = writerOf(freshDestination(), {client->input});
  client->frames = 1;
  EXPECT_FALSE(client->input->isReadyForMoreMediaData());
  client->start();
  client->drain();
  EXPECT_EQ(client->calls, 0);
  ASSERT_TRUE(client->writer->startWriting());
  client->writer->startSessionAtSourceTime(kCMTimeZero);
  dispatch_semaphore_wait(client->called, DISPATCH_TIME_FOREVER);
  client->writer->cancelWriting();
  client->drain();
  EXPECT_GE(client->calls, 1);
}

TEST(AVAssetWriterRequestTest, AnInputThatWasNeverAddedIsAskedSoThatItsClientCanFinish) {
  const auto input = audioInput();
  const auto queue = dispatch_queue_create("test.refused", DISPATCH_QUEUE_SERIAL);
  const auto asked = dispatch_semaphore_create(0);
  input->requestMediaDataWhenReadyOnQueue(queue, [&] {
    EXPECT_TRUE(input->isReadyForMoreMediaData());
    input->markAsFinished();
    dispatch_semaphore_signal(asked);
  });
  dispatch_semaphore_wait(asked, DISPATCH_TIME_FOREVER);
  dispatch_sync(queue, [] {});
}

}  // namespace
}  // namespace vidloom::testing
