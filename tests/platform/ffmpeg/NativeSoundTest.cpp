#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/platform/ffmpeg/MediaTesting.h"
#include "vidloom/platform/ffmpeg/AudioDecoder.h"

namespace vidloom {
namespace {

using testing::ClipSpec;
using testing::makeClip;
using testing::OpenedMedia;
using testing::SoundSamples;

constexpr int kRate = 44100;
constexpr int64_t kFrames = 8 * kRate + 3;

OpenedMedia openSound(const std::filesystem::path& path) { return testing::openMedia(path, MediaKind::audio); }

struct Native {
  int64_t first = -1;  ///< frame
  std::vector<int16_t> samples;
  int channels = 0;
  int64_t frames() const { return static_cast<int64_t>(samples.size()) / channels; }
};

Native readNative(const OpenedMedia& sound, int block = 1000) {
  const auto decoder = testing::decoderFor<AudioDecoder>(sound);
  Native native;
  native.channels = decoder->channels();
  std::vector<int16_t> part(static_cast<size_t>(block * native.channels));
  for (NativeSound got; (got = decoder->readNextNative16(part.data(), block)).frameCount > 0;) {
    if (native.first < 0) native.first = got.firstFrame;
    EXPECT_EQ(got.firstFrame, native.first + native.frames()) << "no time is left out";
    native.samples.insert(native.samples.end(), part.begin(), part.begin() + got.frameCount * native.channels);
  }
  return native;
}

int64_t lengthOf(const OpenedMedia& sound) {
  return std::llround(CMTimeGetSeconds(sound.info().timeRange.duration) * sound.info().sampleRate);
}

TEST(NativeSound, OfRealFilesIsAllThatTheirPacketsGiveAndNoMore) {
  const struct {
    const char* name;
    int64_t frames, length;
  } files[] = {
      {"aac_441hz_1s_afconvert_priming.mp4", 44100, 44100},
      {"bad_only_when_decoded.mp4", 44100, 44100},   // a damaged packet in the middle
      {"bad_truncated.wav", 19956, 19956},           // the header promises more
      {"bad_truncated_moov_first.mp4", 0, 1998848},  // the index is whole, the sound is gone
      {"h264_aac_51.mp4", 45056, 45056},
      {"h264_fragmented_1080x720.mp4", 47104, 47104},   // the header says nothing
      {"h264_he_aac_v1.mp4", 44100, 44100},             // at its doubled rate
      {"h264_one_frame_audio_4s.mp4", 172032, 175104},  // the last packet is said to last four times as long
      {"h264_slow_motion_metadata.mp4", 25821, 25821},  // 221 samples are missing after the first packet
      {"m4a_aac_8k_mono.m4a", 24000, 24000},
      {"mp3_441hz_1s_lame_gapless.mp3", 44100, 44100},
      {"mp3_id3_picture.mp3", 134784, 134784},  // ends in a stray byte
      {"ogg_vorbis_441hz_1s.ogg", 44100, 44100},
      {"ogg_vorbis_gaps_in_timestamps.ogg", 5632, 5632},  // the last time is beyond all reason
      {"opus_441hz_1s.opus", 48000, 48000},
      {"vp9_alpha_transparent_200x200.webm", 237120, 237120},  // Vorbis by the millisecond
      {"wav_pcm24_11k_mono.wav", 11009, 11009},
  };
  for (const auto& file : files) {
    const OpenedMedia sound = openSound(testing::sample(file.name));
    EXPECT_EQ(readNative(sound).frames(), file.frames) << file.name;
    EXPECT_EQ(lengthOf(sound), file.length) << file.name;
  }
}

ClipSpec soundClip(const char* codec, const char* container, SoundSamples sound) {
  return {.frameCount = 0, .sound = std::move(sound), .sampleRate = kRate, .audioCodec = codec, .container = container};
}

void putLittle(std::string& bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i) & 255);
}

size_t sizeField(const std::string& wave) { return wave.find("data") + 4; }

/// Takes the stream header's count of samples, 36 bits, away.
void clearFlacTotal(std::string& bytes) {
  bytes[21] = static_cast<char>(bytes[21] & 0xf0);
  bytes.replace(22, 4, 4, '\0');
}

/// Leaves the frames alone, the first of which begins with a sync code.
void cutFlacHeader(std::string& bytes) { bytes.erase(0, bytes.find("\xff\xf8")); }

void cutInHalf(std::string& bytes) { bytes.resize(bytes.size() / 2); }

struct Variant {
  const char* what;
  const char *codec, *container;
  int64_t frames;  ///< 0: whatever comes, as long as the track's length agrees
  std::function<void(std::string&)> change = [](std::string&) {};
};

const Variant kVariants[] = {
    {"size unknown", "pcm_s16le", "wav", kFrames, [](std::string& b) { putLittle(b, sizeField(b), 0xffffffff); }},
    {"size too large", "pcm_f32le", "wav", kFrames, [](std::string& b) { putLittle(b, sizeField(b), 0x7fffff00); }},
    {"size too small", "pcm_s24le", "wav", 3 * kRate, [](std::string& b) { putLittle(b, sizeField(b), 3 * kRate * 6); }},
    {"cut off within a sample", "pcm_s16le", "wav", 7 * kRate,
     [](std::string& b) { b.resize(sizeField(b) + 4 + 7 * kRate * 4 + 3); }},
    {"much after the samples", "pcm_s16le", "wav", 3 * kRate,
     [](std::string& b) {
       putLittle(b, sizeField(b), 3 * kRate * 4);
       b.replace(sizeField(b) + 4 + 3 * kRate * 4, 8, std::string("junk\0\0\x09\0", 8));
     }},
    {"compressed", "libmp3lame", "wav", 0},
    {"no count", "flac", "flac", kFrames, clearFlacTotal},
    {"no header", "flac", "flac", kFrames, cutFlacHeader},
    {"cut off", "flac", "flac", 0, cutInHalf},
    {"times in milliseconds", "flac", "mkv", kFrames},
    {"times in milliseconds", "libvorbis", "webm", 0},
    {"cut off", "aac", "mkv", 0, cutInHalf},
    {"cut off", "libvorbis", "ogg", 0, [](std::string& b) { b.resize(b.size() - 10); }},
    {"cut off", "aac", "aac", 0, cutInHalf},
    {"times that fall between samples", "ac3", "ts", 0},
    {"cut off", "aac", "ts", 0, cutInHalf},
    {"ends in something else", "libmp3lame", "mp3", kFrames, [](std::string& b) { b += std::string(2000, 'x'); }},
    {"cut off", "libmp3lame", "mp3", 0, cutInHalf},
};

TEST(NativeSound, ComesOfWhatIsThereWhateverTheHeaderSays) {
  for (const Variant& variant : kVariants) {
    const auto clip = makeClip(soundClip(variant.codec, variant.container, testing::noise(kFrames, 8)));
    std::string bytes = testing::readFile(clip);
    variant.change(bytes);
    const OpenedMedia sound = openSound(testing::writeFile(std::string("changed.") + variant.container, bytes));
    const Native native = readNative(sound);
    const std::string which = std::string(variant.codec) + " in " + variant.container + ", " + variant.what;
    EXPECT_EQ(native.frames(), variant.frames > 0 ? variant.frames : lengthOf(sound)) << which;
    EXPECT_EQ(lengthOf(sound), native.frames()) << which;
    EXPECT_GT(native.frames(), kFrames / 4) << which;
  }
}

TEST(NativeSound, KeepsToTheEditsWithSilenceBetweenThemOnly) {
  const auto clip = makeClip(soundClip("pcm_s16le", "mov", testing::noise(2 * kRate, 8)));
  const std::vector<int16_t> all = readNative(openSound(clip)).samples;
  const int64_t second = 240000;
  // An empty edit first; half a second from the end of the media; an empty one; media from before its end to far beyond it.
  const auto edited =
      testing::withEdits(clip, "soun", {{second, -1}, {second / 2, kRate}, {second / 4, -1}, {second / 2, 0}, {second, -1}});
  const Native native = readNative(openSound(edited));
  std::vector<int16_t> expected(all.begin() + 2 * kRate, all.begin() + 3 * kRate);
  expected.resize(expected.size() + static_cast<size_t>(kRate / 4) * 2);
  expected.insert(expected.end(), all.begin(), all.begin() + kRate);
  EXPECT_EQ(native.first, 0);
  EXPECT_EQ(native.samples, expected);
}

TEST(NativeSound, RoundsToNearestAndSaturates) {
  const float infinity = std::numeric_limits<float>::infinity(), step = 1.0f / 32768;
  const std::pair<float, int16_t> cases[] = {
      {0, 0},
      {1, 32767},
      {-1, -32768},
      {7, 32767},
      {-7, -32768},
      {1e30f, 32767},
      {-1e30f, -32768},
      {infinity, 32767},
      {-infinity, -32768},
      {NAN, 0},
      {0.5f * step, 0},
      {1.5f * step, 2},
      {-0.5f * step, 0},
      {0.51f * step, 1},
      {-0.51f * step, -1},
      {2.5f * step, 2},
      {-1.5f * step, -2},
      {0.25f, 8192},
      {32767 * step, 32767},
      {32766.6f * step, 32767},
  };
  SoundSamples samples;
  std::vector<int16_t> expected;
  for (size_t i = 0; i < 122; ++i) {  // every case in every lane, and some left over
    samples.push_back(cases[i % std::size(cases)].first);
    expected.push_back(cases[i % std::size(cases)].second);
  }
  EXPECT_EQ(readNative(openSound(makeClip(soundClip("pcm_f32le", "wav", samples))), 37).samples, expected);
}

TEST(NativeSound, IsWhatTheProgramDecodes) {
  for (const auto& [codec, container, channels] : {std::tuple("aac", "aac", 2),
                                                   {"aac", "aac", 1},
                                                   {"ac3", "ac3.mkv", 2},
                                                   {"libmp3lame", "mp3", 2},
                                                   {"pcm_alaw", "wav", 1},
                                                   {"pcm_u8", "wav", 2},
                                                   {"pcm_s32le", "wav", 2},
                                                   {"pcm_f64le", "wav", 2},
                                                   {"libopus", "ogg", 2},
                                                   {"alac", "mkv", 2}}) {
    ClipSpec spec = soundClip(codec, container, testing::noise(kFrames, 9));
    spec.channels = channels;
    const auto clip = makeClip(spec);
    std::string bytes;
    ASSERT_EQ(testing::runProgram({"ffmpeg", "-v", "error", "-i", clip.string(), "-f", "s16le", "-"}, &bytes), 0);
    std::vector<int16_t> expected(bytes.size() / 2);
    std::memcpy(expected.data(), bytes.data(), bytes.size());
    EXPECT_EQ(readNative(openSound(clip), 777).samples, expected) << codec << " in " << container;
  }
}

}  // namespace
}  // namespace vidloom
