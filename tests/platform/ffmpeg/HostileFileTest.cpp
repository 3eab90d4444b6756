// Files that were damaged or made to do harm: whatever they hold, opening and reading them ends, and what is found is consistent.
#include <gtest/gtest.h>

#include <random>

#include "tests/platform/ffmpeg/MediaTesting.h"
#include "vidloom/platform/ffmpeg/AudioDecoder.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {
namespace {

using testing::sample;

void expectConsistent(const MediaTrack& track) {
  CMTime end = kCMTimeZero;
  for (const MediaEdit& edit : track.edits) {
    EXPECT_EQ(CMTimeCompare(edit.target.start, end), 0);
    EXPECT_GT(edit.target.duration.value, 0);
    end = CMTimeRangeGetEnd(edit.target);
  }
  EXPECT_TRUE(CMTIMERANGE_IS_VALID(track.timeRange));
  EXPECT_TRUE(track.edits.empty() || CMTimeCompare(CMTimeRangeGetEnd(track.timeRange), end) == 0);
  EXPECT_LE(int64_t{track.codedWidth} * track.codedHeight, MediaLimits{}.maxPixels);
  EXPECT_LE(track.channels, MediaLimits{}.maxChannels);
}

void readPictures(VideoDecoder& decoder, const MediaTrack& track) {
  const MediaEdit& last = track.edits.back();
  for (const CMTime& after : {kCMTimeZero, CMTimeMake(1, 2), last.target.duration, CMTimeSubtract(kCMTimeZero, last.mediaStart)}) {
    const auto frame = decoder.frameAt(CMTimeAdd(last.mediaStart, after), nullptr);
    if (!frame) continue;
    EXPECT_EQ(frame->picture->width, track.codedWidth);
    EXPECT_EQ(frame->picture->height, track.codedHeight);
  }
}

void readSound(AudioDecoder& decoder) {
  std::vector<float> samples(2 * 3000);
  for (const int64_t first : {int64_t{0}, int64_t{20000}, int64_t{-100}, int64_t{1} << 40}) {
    EXPECT_TRUE(decoder.read(first, 3000, samples.data()));
  }
}

void readAll(const std::filesystem::path& path, const std::string& label) {
  SCOPED_TRACE(label);
  std::optional<NSError> error;
  const auto file = MediaFile::open(path, {}, &error);
  EXPECT_NE(file == nullptr, !error.has_value());
  for (int i = 0; file && i < static_cast<int>(file->tracks().size()); ++i) {
    const MediaTrack& track = file->tracks()[static_cast<size_t>(i)];
    expectConsistent(track);
    const auto video = track.kind == MediaKind::video ? VideoDecoder::open(file, i, {}, nullptr) : nullptr;
    const auto audio = track.kind == MediaKind::audio ? AudioDecoder::open(file, i, nullptr) : nullptr;
    if (video && !track.edits.empty()) readPictures(*video, track);
    if (audio) readSound(*audio);
  }
}

TEST(HostileFile, EveryDamagedSampleIsReadOrRefused) {
  const testing::LogCapture log;
  for (const auto& entry : std::filesystem::directory_iterator(sample(""))) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("bad_")) readAll(entry.path(), name);
  }
}

std::string mutated(std::string bytes, std::mt19937& random) {
  const size_t count = 1 + random() % 8;
  // The index is where a byte does most harm: at the beginning or at the end.
  const size_t reach = std::min<size_t>(bytes.size(), 4096);
  for (size_t i = 0; i < count; ++i) {
    const size_t near = random() % reach;
    const size_t place = random() % 3 == 0 ? random() % bytes.size() : random() % 2 == 0 ? near : bytes.size() - 1 - near;
    const unsigned kind = random() % 4;
    bytes[place] = kind == 0 ? '\xff' : kind == 1 ? '\0' : kind == 2 ? '\x7f' : static_cast<char>(random() & 255);
  }
  if (random() % 8 == 0) bytes.resize(1 + random() % bytes.size());
  return bytes;
}

TEST(HostileFile, MutationsOfGoodSamplesAreReadOrRefused) {
  const testing::LogCapture log;
  for (const std::string name :
       {"h264_he_aac_v1.mp4", "h264_rotation_90cw_phone_568x320.mov", "h264_fragmented_1080x720.mp4", "vp8_resolution_change.webm",
        "ogg_vorbis_441hz_1s.ogg", "mp3_441hz_1s_lame_gapless.mp3", "wav_pcm24_11k_mono.wav", "h264_854x480.ts"}) {
    const std::string original = testing::readFile(sample(name));
    std::mt19937 random(2024);
    for (int i = 0; i < 40 && !::testing::Test::HasFailure(); ++i) {
      readAll(testing::writeFile("mutated" + sample(name).extension().string(), mutated(original, random)),
              name + ", mutation " + std::to_string(i));
    }
  }
}

TEST(HostileFile, ATableThatClaimsMoreSamplesThanTheFileHasBytesIsRefused) {
  std::string bytes = testing::readFile(testing::makeClip({.frameCount = 3}));
  const size_t table = bytes.find("stsz");
  ASSERT_NE(table, std::string::npos);
  bytes.replace(table + 8, 8, std::string("\0\0\0\1\x7f\xff\xff\xff", 8));
  std::optional<NSError> error;
  EXPECT_EQ(MediaFile::open(testing::writeFile("bomb.mp4", bytes), {}, &error), nullptr);
  EXPECT_NE(error.value().localizedDescription().find("sample table"), std::string::npos) << *error;
}

}  // namespace
}  // namespace vidloom
