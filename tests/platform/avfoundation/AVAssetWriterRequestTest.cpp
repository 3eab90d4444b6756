// When a client is asked for samples.
#include <gtest/gtest.h>

#include <atomic>

#include "tests/platform/avfoundation/WriterTesting.h"
#include "tests/platform/dispatch/DispatchTesting.h"

namespace vidloom::testing {
namespace {

TEST(AVAssetWriterRequestTest, ClientsOnOneQueueAreAskedByTurnsUntilTheyMarkTheirInputsAsFinished) {
  const auto movie = freshDestination();
  const auto video = videoInput(), audio = audioInput();
  const auto writer = startedWriter(movie, {video, audio});
  const auto queue = dispatch_queue_create("test.both", DISPATCH_QUEUE_SERIAL);
  const auto group = dispatch_group_create();
  const SoundSamples sound = sine(440, 44100, 44100);
  int videoCalls = 0;
  dispatch_group_enter(group);
  video->requestMediaDataWhenReadyOnQueue(queue, [&, next = 0]() mutable {
    ++videoCalls;
    if (next == 30) {
      video->markAsFinished();
      return dispatch_group_leave(group);
    }
    for (const int end = std::min(next + 4, 30); next < end; ++next) {
      EXPECT_TRUE(video->appendSampleBuffer(numberedSample(next, CMTimeMake(next, 30))));
    }
  });
  dispatch_group_enter(group);
  audio->requestMediaDataWhenReadyOnQueue(queue, [&, next = 0]() mutable {
    if (next < 44100) {
      EXPECT_TRUE(audio->appendSampleBuffer(soundSample(sound, next, 4410)));
      next += 4410;
      return;
    }
    audio->markAsFinished();
    dispatch_group_leave(group);
  });
  dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
  finishAndWait(writer);
  flush(queue);
  EXPECT_EQ(videoCalls, 9) << "eight with frames and one that finds no more";
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(decodedFrameIndices(movie).size(), 30u);
}

/// A client that never brings anything.
struct IdleClient {
  std::shared_ptr<AVAssetWriterInput> input = videoInput();
  std::shared_ptr<AVAssetWriter> writer = writerOf(freshDestination(), {input});
  dispatch_queue_t queue = dispatch_queue_create("test.client", DISPATCH_QUEUE_SERIAL);
  dispatch_semaphore_t called = dispatch_semaphore_create(0);
  std::atomic<int> calls{0};

  void request() {
    input->requestMediaDataWhenReadyOnQueue(queue, [this] {
      ++calls;
      dispatch_semaphore_signal(called);
    });
  }
  void start() {
    ASSERT_TRUE(writer->startWriting());
    writer->startSessionAtSourceTime(kCMTimeZero);
  }
};

TEST(AVAssetWriterRequestTest, AClientThatWaitsIsAskedOnceMoreWhenTheWritingStopsUnlessItHasFinished) {
  enum class Stop { cancel, failure, finished };
  for (const Stop stop : {Stop::cancel, Stop::failure, Stop::finished}) {
    IdleClient client;
    client.start();
    client.request();
    ASSERT_TRUE(cameThrough(client.called));
    flush(client.queue);
    EXPECT_EQ(client.calls, 1) << "a call that brought nothing is not repeated";
    if (stop == Stop::failure) client.input->appendSampleBuffer(nullptr);
    if (stop == Stop::finished) client.input->markAsFinished();
    client.writer->cancelWriting();
    if (stop != Stop::finished) {
      ASSERT_TRUE(cameThrough(client.called));
      EXPECT_TRUE(client.input->isReadyForMoreMediaData()) << "or a client that looks at readiness first would wait for ever";
    }
    flush(client.queue);
    EXPECT_EQ(client.calls, stop == Stop::finished ? 1 : 2);
  }
}

TEST(AVAssetWriterRequestTest, ARequestBeforeTheStartWaitsForItAndMayOutliveItsWriter) {
  IdleClient client;
  EXPECT_FALSE(client.input->isReadyForMoreMediaData());
  client.request();
  flush(client.queue);
  EXPECT_EQ(client.calls, 0);
  client.start();
  ASSERT_TRUE(cameThrough(client.called));
  client.writer.reset();
  ASSERT_TRUE(cameThrough(client.called));
  flush(client.queue);
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
  EXPECT_TRUE(cameThrough(asked));
  flush(queue);
}

}  // namespace
}  // namespace vidloom::testing
