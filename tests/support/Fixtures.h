// Clips made on the spot with the `ffmpeg` program, and what that program says about files that we wrote.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom::testing {

/// A folder of this process for whatever a test writes; removed when the process ends.
const std::filesystem::path& scratchFolder();

/// A destination in a new folder of its own, and how many files that folder holds.
std::filesystem::path freshDestination(const std::string& name = "movie.mp4");
size_t filesBeside(const std::filesystem::path& destination);

/// Files of this process cannot grow beyond that size while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t byteCount);
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

/// Runs a program without input and waits for it. Returns the exit status; standard output goes to *output where given. Standard
/// error is dropped unless VIDLOOM_TEST_VERBOSE is set.
int runProgram(const std::vector<std::string>& command, std::string* output = nullptr);

/// Interleaved stereo float: what a clip's sound track is made from.
using SoundSamples = std::vector<float>;
/// Silence of `frames` stereo frames with a short burst of 3 kHz starting at each of the given frames.
SoundSamples soundWithBursts(int64_t frames, const std::vector<int64_t>& burstFrames, int sampleRate);
/// A sine of that frequency, amplitude 0.5, on both channels.
SoundSamples sine(double hertz, int64_t frames, int sampleRate);
/// White noise from a fixed seed, amplitude 0.25: aligns to one sample by correlation.
SoundSamples noise(int64_t frames, uint32_t seed);

/// What to make. The defaults give a second of H.264 in MP4 without sound.
struct ClipSpec {
  int frameCount = 30;  ///< 0: no video track
  std::string frameRate = "30";
  int width = 320, height = 180;
  std::string videoCodec = "libx264";
  int gop = 250, bFrames = 0;
  bool openGop = false;
  std::string pixelFormat = "yuv420p";
  int crf = 18;
  std::vector<std::string> videoOptions = {};  ///< further options of the output, before its name
  SoundSamples sound = {};                     ///< empty: no sound track
  int sampleRate = 48000;
  int channels = 2;  ///< 1: the left channel only
  std::string audioCodec = "aac";
  std::vector<std::string> audioOptions = {};
  std::string container = "mp4";  ///< the file name's extension
};

/// Writes the clip into the scratch folder (once for equal specs) and gives its path. Every frame shows its index as blocks. Throws
/// std::runtime_error where ffmpeg fails. MP4 and MOV get a movie timescale of 240000 and the index last.
std::filesystem::path makeClip(const ClipSpec& spec);

/// A frame's luma plane with its index drawn as two rows of eight blocks plus a check row, over a moving background.
void drawFrameIndex(int index, int width, int height, uint8_t* luma, ptrdiff_t stride);
/// The index that a frame of such a clip carries; -1 where none can be read.
int readFrameIndex(const Picture& picture);
int readFrameIndex(const uint8_t* luma, ptrdiff_t stride, int width, int height);

/// An entry for setEdits: seconds = ticks / timescale of the movie; mediaTime in ticks of the media, -1 for an empty edit.
struct EditEntry {
  int64_t duration = 0;
  int64_t mediaTime = 0;
};
/// A copy of an MP4 or MOV file (index last) in which the first track with that handler ("vide", "soun") has this edit list; an
/// empty list removes it.
std::filesystem::path withEdits(const std::filesystem::path& file, const std::string& handler, const std::vector<EditEntry>& edits);
/// A copy whose first video track carries that matrix (a, b, c, d, tx, ty).
std::filesystem::path withMatrix(const std::filesystem::path& file, const std::vector<double>& matrix);
/// A copy whose first track with that handler is marked as disabled.
std::filesystem::path withTrackDisabled(const std::filesystem::path& file, const std::string& handler);
/// Whole files as bytes. writeFile puts `bytes` under `name` into the scratch folder.
std::string readFile(const std::filesystem::path& file);
std::filesystem::path writeFile(const std::string& name, const std::string& bytes);
/// A file of 16-bit PCM with interleaved samples.
std::filesystem::path writeWav(const std::string& name, int sampleRate, int channels, const std::vector<int16_t>& samples);

/// What ffmpeg decodes from a file: the 4:2:0 planes of all frames as stored (none doubled or dropped), the indices that they
/// carry, and the sound as interleaved stereo float at its own rate, or at `sampleRate` where that is not 0.
std::string decodedPlanes(const std::filesystem::path& file);
std::vector<int> decodedFrameIndices(const std::filesystem::path& file);
SoundSamples decodedSound(const std::filesystem::path& file, int sampleRate = 0);
/// The stereo frames at which bursts (see soundWithBursts) begin in either channel.
std::vector<int64_t> burstStarts(const SoundSamples& sound, int sampleRate);

/// Captures the system log for as long as it lives.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  std::vector<std::string> lines() const;
  /// Whether a line contains every one of the texts.
  bool contains(const std::vector<std::string>& texts) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::function<void(const std::string&)> previous_;
};

}  // namespace vidloom::testing
