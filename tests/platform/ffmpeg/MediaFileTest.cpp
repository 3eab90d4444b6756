#include "vidloom/platform/ffmpeg/MediaFile.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <numeric>
#include <sstream>

#include "tests/platform/ffmpeg/MediaTesting.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using testing::makeClip;
using testing::sample;
using testing::withEdits;

std::string text(const CMTime& time) {
  std::ostringstream out;
  out << time.value << '/' << time.timescale;
  return out.str();
}

/// "0+30/30 @2/30" for each edit: target duration @ media start.
std::string textOfEdits(const MediaTrack& track) {
  std::string result;
  for (const MediaEdit& edit : track.edits) {
    result += (result.empty() ? "" : ", ") + text(edit.target.duration) + " @ " + (edit.isEmpty() ? "-" : text(edit.mediaStart));
  }
  return result;
}

std::string describe(const MediaTrack& track) {
  std::ostringstream out;
  if (track.kind == MediaKind::other) return "other";
  out << track.codec << " [" << textOfEdits(track) << "] ";
  if (track.kind == MediaKind::audio) {
    out << track.sampleRate << " Hz " << track.channels;
    return out.str();
  }
  const CGAffineTransform& m = track.preferredTransform;
  out << track.naturalSize.width << 'x' << track.naturalSize.height << ' ' << track.color.matrixName
      << (track.color.fullRange ? " full" : "") << (track.colorIsTagged ? "" : " untagged")
      << (track.interlaced ? " interlaced" : "") << (track.hasAlpha ? " alpha" : "") << (track.highDynamicRange ? " hdr" : "")
      << (track.variableFrameRate ? " variable" : "");
  if (!(m == CGAffineTransformIdentity))
    out << " (" << m.a << ' ' << m.b << ' ' << m.c << ' ' << m.d << ' ' << m.tx << ' ' << m.ty << ')';
  return out.str();
}

std::vector<std::string> describe(const std::filesystem::path& path) {
  std::optional<NSError> error;
  const auto file = MediaFile::open(path, {}, &error);
  if (!file) return {"error " + std::to_string(error->code())};
  std::vector<std::string> tracks;
  for (const MediaTrack& track : file->tracks()) tracks.push_back(describe(track));
  return tracks;
}

TEST(MediaFile, UnderstandsRealFiles) {
  const std::pair<const char*, std::vector<std::string>> files[] = {
      {"h264_rotation_90cw_phone_568x320.mov", {"h264 [1920/19200 @ 0/19200] 568x320 bt709 (0 1 -1 0 320 0)"}},
      {"h264_mirrored_horizontal_flat_green.mp4",
       {"h264 [15360/15360 @ 1024/15360] 128x72 smpte170m full untagged (-1 0 0 1 0 0)",
        "aac [44100/44100 @ 2048/44100] 44100 Hz 2"}},
      {"h264_sar_2x3_640x360.mp4",
       {"h264 [30720/15360 @ 1024/15360] 426.667x360 smpte170m untagged", "aac [89088/44100 @ 1024/44100] 44100 Hz 2"}},
      {"h264_editlist_video_delayed_1s_1080p.mp4",
       {"h264 [1000/1000 @ -, 138240/15360 @ 0/15360] 1920x1080 bt709 untagged", "aac [480256/48000 @ 1024/48000] 48000 Hz 2"}},
      {"h264_editlist_only_sync_frame_is_preroll.mp4",
       {"h264 [12285584/23040000 @ 767849/23040000] 640x360 bt709", "aac [24928/48000 @ 1440/48000] 48000 Hz 2"}},
      {"h264_aac_51.mp4",
       {"h264 [15360/15360 @ 1024/15360] 128x72 smpte170m full untagged", "aac [45056/44100 @ 1024/44100] 44100 Hz 6"}},
      {"aac_441hz_1s_afconvert_priming.mp4", {"aac [44100/44100 @ 2112/44100] 44100 Hz 1"}},
      {"m4a_aac_8k_mono.m4a", {"aac [24000/8000 @ 2048/8000] 8000 Hz 1"}},
      {"h264_he_aac_v1.mp4",
       {"h264 [15360/15360 @ 1024/15360] 128x72 smpte170m full untagged", "aac [44100/44100 @ 5058/44100] 44100 Hz 2"}},
      {"h264_fragmented_1080x720.mp4",
       {"h264 [30030/30000 @ 2002/30000] 1080x720 bt709 untagged", "aac [47104/44100 @ 0/44100] 44100 Hz 1"}},
      {"h264_interlaced_480i_sar10x11_timecode_track.mov",
       {"h264 [10010/30000 @ 0/30000] 654.545x480 smpte170m interlaced", "other"}},
      {"h264_cover_art_png_track.mp4",
       {"h264 [15360/15360 @ 1024/15360] 128x72 smpte170m full untagged", "aac [44100/44100 @ 2048/44100] 44100 Hz 2", "other"}},
      {"timecode_track_only_24fps.mov", {"other"}},
      {"hevc_dolby_vision_hlg_iphone_rotated.mov",
       {"hevc [64/600 @ 0/600] 1280x720 bt709 hdr (0 1 -1 0 720 0)", "aac [63/600 @ 2112/44100] 44100 Hz 2", "other", "other",
        "other"}},
      {"colour_quads_full_444_h264.mp4", {"h264 [512/12800 @ 0/12800] 1280x720 bt709 full"}},
      {"vp9_alpha_transparent_200x200.webm",
       {"vp9 [5000/1000 @ 0/1] 200x200 bt470bg alpha", "vorbis [237120/48000 @ 0/1] 48000 Hz 2"}},
      {"h264_854x480.ts", {"h264 [90000/90000 @ 132000/90000] 854x480 smpte170m untagged"}},
      {"mp3_441hz_1s_lame_gapless.mp3", {"mp3 [44100/44100 @ 1105/44100] 44100 Hz 1"}},
      {"mp3_id3_picture.mp3", {"mp3 [134784/48000 @ 0/1] 48000 Hz 2", "other"}},
      {"ogg_vorbis_441hz_1s.ogg", {"vorbis [44100/44100 @ 0/1] 44100 Hz 1"}},
      {"opus_441hz_1s.opus", {"opus [48000/48000 @ 0/1] 48000 Hz 1"}},
      {"wav_pcm24_11k_mono.wav", {"pcm_s24le [11009/11025 @ 0/1] 11025 Hz 1"}},
      {"bad_zero_streams.mp4", {}},
      {"bad_duration_int64_max.mp4", {"other"}},
      {"bad_negative_duration.mp4", {"other"}},
  };
  for (const auto& [name, tracks] : files) EXPECT_EQ(describe(sample(name)), tracks) << name;
}

void expectRefused(const std::filesystem::path& path, const std::string& words, const MediaLimits& limits = {}) {
  std::optional<NSError> error;
  EXPECT_EQ(MediaFile::open(path, limits, &error), nullptr) << path;
  ASSERT_TRUE(error) << path;
  EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
  EXPECT_NE(error->localizedDescription().find(words), std::string::npos) << error->localizedDescription();
}

TEST(MediaFile, RefusesWhatItCannotReadAndNamesIt) {
  for (const char* name : {"bad_header.mp4", "bad_editlist_rate_65535.mp4", "bad_negative_sample_size.mp4", "bad_corrupt.mkv",
                           "bad_stsc_stco_contradiction.mp4", "bad_truncated_1024_bytes.mov", "bad_garbled.webm", "bad_fuzz.mp3",
                           "bad_fuzz_extradata.wav", "bad_fuzz_no_data_chunk.wav", "bad_255_channels.wav", "no such file.mp4"}) {
    expectRefused(sample(name), name);
  }
  std::optional<NSError> error;
  MediaFile::open(sample("no such file.mp4"), {}, &error);
  EXPECT_EQ(error->underlyingError().value().code(), ENOENT);
}

TEST(MediaFile, RefusesWhatIsNoFileWithoutWaiting) {
  const std::filesystem::path pipe = testing::scratchFolder() / "pipe.mp4";
  mkfifo(pipe.c_str(), 0600);
  sockaddr_un address{AF_UNIX, {}};
  const std::filesystem::path socketPath = testing::scratchFolder() / "socket.mp4";
  socketPath.string().copy(address.sun_path, sizeof address.sun_path - 1);
  const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  close(descriptor);
  expectRefused(socketPath, "is a socket");
  expectRefused(testing::scratchFolder(), "is a folder");
  expectRefused(pipe, "is a pipe");
  expectRefused(testing::writeFile("empty.mp4", ""), "is empty");
  expectRefused("/dev/zero", "is a device");
}

TEST(MediaFile, OpensNothingButTheFileItself) {
  const std::string name = makeClip({.frameCount = 3}).string();
  const std::pair<const char*, std::string> scripts[] = {
      {"hls.mp4", "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\n" + name + "\n#EXT-X-ENDLIST\n"},
      {"hls.ts", "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nfile://" + name + "\n#EXT-X-ENDLIST\n"},
      {"concat.mp4", "ffconcat version 1.0\nfile '" + name + "'\n"},
      {"sdp.mp4", "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=video 5004 RTP/AVP 96\n"},
      {"list.mp3", "#EXTM3U\nhttp://127.0.0.1:9/x.mp3\n"},
      {"subtitles.mp4", "1\n00:00:00,000 --> 00:00:01,000\nHello\n\n2\n00:00:01,000 --> 00:00:02,000\nHello\n\n"},
  };
  for (const auto& [file, content] : scripts) expectRefused(testing::writeFile(file, content), file);
}

TEST(MediaFile, KeepsToItsLimits) {
  const std::filesystem::path clip = makeClip({.frameCount = 5, .sound = testing::sine(440, 8000, 48000)});
  expectRefused(clip, "320x180 pixels", {.maxPixels = 320 * 180 - 1});
  expectRefused(clip, "more than 1 tracks", {.maxTracks = 1});
  expectRefused(clip, "sample table", {.maxSamplesPerTrack = 4});
  expectRefused(clip, "2 channels", {.maxChannels = 1});
}

/// The movie's clock has 240000 ticks a second, the media's 15360.
TEST(MediaFile, ReadsEditListsAsTheyAreMeant) {
  const std::tuple<const char*, std::vector<testing::EditEntry>, const char*> cases[] = {
      {"none: from the first picture on", {}, "15360/15360 @ 1024/15360"},
      {"the delay of reordering", {{240000, 1024}}, "15360/15360 @ 1024/15360"},
      {"a tick longer than the media", {{240001, 1024}}, "15360/15360 @ 1024/15360"},
      {"much longer than the media", {{480000, 1024}}, "15360/15360 @ 1024/15360"},
      {"shorter than the media", {{120000, 1024}}, "120000/240000 @ 1024/15360"},
      {"hidden beginning", {{120000, 8704}}, "7680/15360 @ 8704/15360"},
      {"two pieces in another order", {{80000, 9216}, {120000, 1024}}, "80000/240000 @ 9216/15360, 120000/240000 @ 1024/15360"},
      {"a gap between",
       {{80000, 1024}, {80000, -1}, {80000, 1024}},
       "80000/240000 @ 1024/15360, 80000/240000 @ -, 80000/240000 @ 1024/15360"},
      {"nothing but a gap counts as none", {{240000, -1}}, "15360/15360 @ 1024/15360"},
      {"absurd", {{int64_t{1} << 62, 1024}}, "15360/15360 @ 1024/15360"},
  };
  for (const auto& [name, edits, expected] : cases) {
    const auto clip = makeClip({.bFrames = 2, .sound = testing::sine(440, 48000, 48000)});
    const auto media = testing::openMedia(withEdits(clip, "vide", edits), MediaKind::video);
    EXPECT_EQ(textOfEdits(media.info()), expected) << name;
  }
}

TEST(MediaFile, KeepsTheLastPictureWhereAnEditAndTheSamplesDurationsReachFurther) {
  const auto clip = makeClip({.bFrames = 2, .videoOptions = {"-movflags", "negative_cts_offsets"}});
  std::string bytes = testing::readFile(withEdits(clip, "vide", {{240000, 0}}));
  const size_t table = bytes.find("ctts") + 8;
  const auto word = [&bytes](size_t at) {
    return std::accumulate(&bytes[at], &bytes[at] + 4, 0u, [](uint32_t sum, char byte) { return sum << 8 | (byte & 255u); });
  };
  for (uint32_t entry = 0; entry < word(table); ++entry) {  // everything is shown a third of a second earlier
    const size_t at = table + 8 + 8 * entry;
    const uint32_t offset = word(at) - 5120;
    for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(offset >> (24 - 8 * i));
  }
  const auto media = testing::openMedia(testing::writeFile("early.mp4", bytes), MediaKind::video);
  EXPECT_EQ(textOfEdits(media.info()), "240000/240000 @ 0/15360");
}

TEST(MediaFile, TakesAnEditThatIsRoundedToMillisecondsForTheWhole) {
  for (const int frames : {1, 7, 29, 299}) {
    const auto clip = makeClip({.frameCount = frames, .videoOptions = {"-movie_timescale", "1000"}});
    const CMTime duration = testing::openMedia(clip, MediaKind::video).file->duration();
    EXPECT_EQ(CMTimeCompare(duration, CMTimeMake(frames, 30)), 0) << frames << " frames: " << duration;
  }
}

TEST(MediaFile, KnowsRateAndWhetherItVaries) {
  for (const auto& [rate, expected] : {std::pair{"25", 25.0}, {"30000/1001", 30000.0 / 1001}}) {
    for (const char* container : {"mp4", "mkv"}) {
      const auto media = testing::openMedia(makeClip({.frameRate = rate, .container = container}), MediaKind::video);
      EXPECT_NEAR(media.info().nominalFrameRate, expected, 0.001) << container;
      EXPECT_FALSE(media.info().variableFrameRate) << container << ' ' << rate;
    }
  }
  const auto uneven = makeClip({.videoOptions = {"-vf", "settb=1/1000,setpts='N*58+mod(N*N*37,29)'", "-fps_mode", "passthrough"}});
  EXPECT_TRUE(testing::openMedia(uneven, MediaKind::video).info().variableFrameRate);
}

TEST(MediaFile, FindsTheSameTracksInATruncatedMovieWithItsIndexInFront) {
  const std::filesystem::path whole = makeClip({.videoOptions = {"-movflags", "faststart"}});
  const std::string bytes = testing::readFile(whole);
  EXPECT_EQ(describe(testing::writeFile("cut.mp4", bytes.substr(0, bytes.size() * 2 / 3))), describe(whole));
}

}  // namespace
}  // namespace vidloom
