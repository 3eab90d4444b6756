// Files that were damaged or made to do harm: whatever they hold, opening and reading them ends, and what is found is consistent.
#include <gtest/gtest.h>

#include <random>

#include "tests/platform/ffmpeg/MediaTesting.h"
#include "vidloom/platform/ffmpeg/AudioDecoder.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {
namespace {

using testing::sample;

void expectConsistent(const MediaTrack& track, const std::string& label) {
  CMTime end = kCMTimeZero;
  for (const MediaEdit& edit : track.edits) {
    EXPECT_EQ(CMTimeCompare(edit.target.start, end), 0) << label;
    EXPECT_GT(edit.target.duration.value, 0) << label;
    end = CMTimeRangeGetEnd(edit.target);
  }
  EXPECT_TRUE(CMTIMERANGE_IS_VALID(track.timeRange)) << label;
  if (!track.edits.empty()) {
    EXPECT_EQ(CMTimeCompare(CMTimeRangeGetEnd(track.timeRange), end), 0) << label;
  }
  EXPECT_LE(int64_t{track.codedWidth} * track.codedHeight, MediaLimits{}.maxPixels) << label;
  EXPECT_LE(track.channels, MediaLimits{}.maxChannels) << label;
}

void readPictures(const std::shared_ptr<const MediaFile>& file, int track, const std::string& label) {
  auto decoder = VideoDecoder::open(file, track, {}, nullptr);
  const std::vector<MediaEdit>& edits = file->tracks()[static_cast<size_t>(track)].edits;
  if (!decoder || edits.empty()) return;
  const CMTime start = edits.back().mediaStart;
  for (const CMTime& time :
       {start, CMTimeAdd(start, CMTimeMake(1, 2)), CMTimeAdd(start, edits.back().target.duration), kCMTimeZero}) {
    const auto frame = decoder->frameAt(time, nullptr);
    if (!frame) continue;
    EXPECT_EQ(frame->picture->width, file->tracks()[static_cast<size_t>(track)].codedWidth) << label;
    EXPECT_EQ(frame->picture->height, file->tracks()[static_cast<size_t>(track)].codedHeight) << label;
  }
}

void readSound(const std::shared_ptr<const MediaFile>& file, int track, const std::string& label) {
  auto decoder = AudioDecoder::open(file, track, nullptr);
  if (!decoder) return;
  std::vector<float> samples(2 * 3000);
  for (const int64_t first : {int64_t{0}, int64_t{20000}, int64_t{-100}, int64_t{1} << 40}) {
    EXPECT_TRUE(decoder->read(first, 3000, samples.data())) << label;
  }
}

void readAll(const std::filesystem::path& path, const std::string& label) {
  std::optional<NSError> error;
  const auto file = MediaFile::open(path, {}, &error);
  EXPECT_NE(file == nullptr, !error.has_value()) << label;
  if (!file) return;
  for (size_t i = 0; i < file->tracks().size(); ++i) {
    const MediaTrack& track = file->tracks()[i];
    expectConsistent(track, label);
    if (track.kind == MediaKind::video) readPictures(file, static_cast<int>(i), label);
    if (track.kind == MediaKind::audio) readSound(file, static_cast<int>(i), label);
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
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("sample table"), std::string::npos) << error->localizedDescription();
}

}  // namespace
}  // namespace vidloom
