#include "vidloom/platform/reading/DecoderPool.h"

#include <gtest/gtest.h>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using namespace testing;

class DecoderPoolTest : public ::testing::Test {
 protected:
  DecoderPoolTest() {
    for (int i = 0; i < 20; ++i) files.push_back(FakeFile::steadyVideo("clip" + std::to_string(i), 30, 1, 10));
  }
  VideoDecoder* acquire(int cursor, int file) { return pool.acquire(cursor, files[static_cast<size_t>(file)], 0, nullptr); }

  std::vector<std::shared_ptr<FakeFile>> files;
  const std::shared_ptr<DecoderLog> log = std::make_shared<DecoderLog>();
  VideoDecoderPool pool{fakeVideoOpener(log)};
};

TEST_F(DecoderPoolTest, KeepsNoMoreThanTheTracksHowManyFilesThereAre) {
  for (const int tracks : {1, 2, 5}) {
    pool.close();
    log->mostOpen = 0;
    for (int round = 0; round < 200; ++round) {
      pool.beginRound();
      for (int cursor = 0; cursor < tracks; ++cursor) ASSERT_TRUE(acquire(cursor, (round * (cursor + 3) + cursor) % 20));
    }
    EXPECT_LE(log->mostOpen, tracks) << tracks;
  }
}

TEST_F(DecoderPoolTest, NeverClosesWhatAnotherTrackIsReading) {
  std::vector<VideoDecoder*> steady;
  for (int round = 0; round < 50; ++round) {
    pool.beginRound();
    acquire(9, round % 20);  // a track that cuts all the time, and comes first
    for (int cursor = 0; cursor < 4; ++cursor) {
      VideoDecoder* decoder = acquire(cursor, cursor);
      if (round == 0) steady.push_back(decoder);
      ASSERT_EQ(decoder, steady[static_cast<size_t>(cursor)]) << round;
    }
  }
}

TEST_F(DecoderPoolTest, KeepsSomeDecodersOfSoundForFilesThatComeBack) {
  AudioDecoderPool sound{fakeAudioOpener(log)};
  std::vector<std::shared_ptr<FakeFile>> songs;
  for (int i = 0; i < 20; ++i) songs.push_back(FakeFile::audio("song", 48000, [](int64_t, int) { return 0.0f; }));
  for (size_t round = 0; round < 90; ++round) {
    sound.beginRound();
    ASSERT_TRUE(sound.acquire(0, songs[round < 30 ? round % 3 : round % 20], 0, nullptr));
    EXPECT_TRUE(log->opened <= 3 || round >= 30) << round;
  }
  EXPECT_LE(log->mostOpen, 4);
}

TEST_F(DecoderPoolTest, TracksThatTakeTurnsFindTheirOwnDecodersAgainAlsoOfOneFile) {
  VideoDecoder* decoders[2] = {};
  for (int round = 0; round < 30; ++round) {
    pool.beginRound();
    VideoDecoder*& own = decoders[round % 2];
    VideoDecoder* given = acquire(round % 2, 0);
    ASSERT_TRUE(round < 2 || given == own) << round;
    own = given;
  }
  EXPECT_NE(decoders[0], decoders[1]);
  EXPECT_EQ(log->opened, 2);
  pool.beginRound();
  pool.beginRound();
  acquire(2, 0);
  EXPECT_EQ(log->opened, 2) << "another track takes over what nobody uses any more";
}

TEST_F(DecoderPoolTest, GivesNothingAfterACancellation) {
  pool.beginRound();
  VideoDecoder* decoder = acquire(0, 0);
  pool.cancel();
  EXPECT_FALSE(decoder->frameAt(kCMTimeZero, nullptr));
  std::optional<NSError> error;
  EXPECT_EQ(pool.acquire(0, files[1], 0, &error), nullptr);
  EXPECT_TRUE(error);
}

}  // namespace
}  // namespace vidloom
