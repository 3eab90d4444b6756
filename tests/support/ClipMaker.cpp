#include <cmath>
#include <fstream>
#include <random>
#include <stdexcept>

#include "tests/support/Fixtures.h"
#include "tests/support/MovieProbe.h"

namespace vidloom::testing {

namespace {

namespace fs = std::filesystem;

constexpr int kColumns = 8, kRows = 3;  // two rows of index bits, one of check bits
constexpr int kBlack = 24, kWhite = 226;

int checkByte(int index) { return ((index & 255) * 3 ^ (index >> 8) * 7 ^ 0xB6) & 255; }

struct Block {
  int left, top, width, height;
};

Block blockAt(int row, int column, int width, int height) {
  const int left = width * (1 + 4 * column) / 34, right = width * (4 + 4 * column) / 34;
  const int top = height * (1 + 4 * row) / 13, bottom = height * (4 + 4 * row) / 13;
  return {left, top, std::max(1, right - left), std::max(1, bottom - top)};
}

bool bitOf(int index, int row, int column) {
  const int byte = row == 0 ? index & 255 : row == 1 ? index >> 8 & 255 : checkByte(index);
  return (byte >> column & 1) != 0;
}

size_t frameBytes(int width, int height) {
  return static_cast<size_t>(width) * static_cast<size_t>(height) +
         2 * static_cast<size_t>((width + 1) / 2) * static_cast<size_t>((height + 1) / 2);
}

std::string rawFrame(const ClipSpec& spec, int number) {
  std::string frame(frameBytes(spec.width, spec.height), static_cast<char>(118));
  drawFrameIndex(number, spec.width, spec.height, reinterpret_cast<uint8_t*>(frame.data()), spec.width);
  return frame;
}

void append(std::vector<std::string>& command, const std::vector<std::string>& parts) {
  command.insert(command.end(), parts.begin(), parts.end());
}

void addVideoOptions(const ClipSpec& spec, std::vector<std::string>& command) {
  append(command, {"-c:v", spec.videoCodec, "-g", std::to_string(spec.gop), "-pix_fmt", spec.pixelFormat});
  if (spec.videoCodec == "libx264") {
    append(command, {"-preset", "veryfast", "-crf", std::to_string(spec.crf), "-bf", std::to_string(spec.bFrames), "-x264-params",
                     std::string("scenecut=0:threads=1:b-adapt=0:open-gop=") + (spec.openGop ? "1" : "0")});
  }
  append(command, spec.videoOptions);
}

bool isMovie(const ClipSpec& spec) { return spec.container == "mp4" || spec.container == "mov" || spec.container == "m4a"; }

std::vector<std::string> commandFor(const ClipSpec& spec, const fs::path& target) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
  const std::string base = target.string(), rate = std::to_string(spec.sampleRate);
  if (spec.frameCount > 0) {
    append(command, {"-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", std::to_string(spec.width) + "x" + std::to_string(spec.height),
                     "-r", spec.frameRate, "-i", base + ".yuv"});
  }
  if (!spec.sound.empty()) append(command, {"-f", "f32le", "-ar", rate, "-ac", "2", "-i", base + ".f32"});
  if (spec.frameCount > 0) addVideoOptions(spec, command);
  if (!spec.sound.empty()) {
    append(command, {"-c:a", spec.audioCodec});
    if (spec.channels == 1) append(command, {"-af", "pan=mono|c0=c0"});
    append(command, spec.audioOptions);
  }
  if (isMovie(spec)) append(command, {"-movie_timescale", "240000"});
  command.push_back(base);
  return command;
}

std::string nameFor(const ClipSpec& spec) {
  std::string text = spec.frameRate + spec.videoCodec + spec.pixelFormat + spec.audioCodec;
  for (const int number : {spec.frameCount, spec.width, spec.height, spec.gop, spec.bFrames, int{spec.openGop}, spec.crf,
                           spec.sampleRate, spec.channels}) {
    text += ' ' + std::to_string(number);
  }
  for (const auto& options : {spec.videoOptions, spec.audioOptions}) {
    for (const std::string& option : options) text += ' ' + option;
    text += '|';
  }
  text.append(reinterpret_cast<const char*>(spec.sound.data()), spec.sound.size() * sizeof(float));
  return "clip-" + std::to_string(std::hash<std::string>{}(text)) + "." + spec.container;
}

}  // namespace

void drawFrameIndex(int index, int width, int height, uint8_t* luma, ptrdiff_t stride) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) luma[y * stride + x] = (x + 2 * y + 5 * index) / 24 % 2 != 0 ? 96 : 148;
  }
  for (int row = 0; row < kRows; ++row) {
    for (int column = 0; column < kColumns; ++column) {
      const Block block = blockAt(row, column, width, height);
      for (int y = block.top; y < block.top + block.height; ++y) {
        std::fill_n(luma + y * stride + block.left, block.width, static_cast<uint8_t>(bitOf(index, row, column) ? kWhite : kBlack));
      }
    }
  }
}

int readFrameIndex(const uint8_t* luma, ptrdiff_t stride, int width, int height) {
  int bytes[kRows] = {};
  for (int row = 0; row < kRows; ++row) {
    for (int column = 0; column < kColumns; ++column) {
      const Block block = blockAt(row, column, width, height);
      int sum = 0, count = 0;
      for (int y = block.top + block.height / 4; y < block.top + (3 * block.height + 3) / 4; ++y) {
        for (int x = block.left + block.width / 4; x < block.left + (3 * block.width + 3) / 4; ++x, ++count) {
          sum += luma[y * stride + x];
        }
      }
      if (count > 0 && sum > 125 * count) bytes[row] |= 1 << column;
    }
  }
  const int index = bytes[0] | bytes[1] << 8;
  return bytes[2] == checkByte(index) ? index : -1;
}

int readFrameIndex(const Picture& picture) {
  return readFrameIndex(picture.y.data, picture.y.stride, picture.width, picture.height);
}

SoundSamples soundWithBursts(int64_t frames, const std::vector<int64_t>& burstFrames, int sampleRate) {
  SoundSamples sound(static_cast<size_t>(frames) * 2);
  for (const int64_t start : burstFrames) {
    for (int64_t i = 0; i < sampleRate / 200 && start + i < frames; ++i) {
      const double value = 0.6 * std::sin(2 * M_PI * 3000 * (static_cast<double>(i) + 0.5) / sampleRate);
      sound[static_cast<size_t>(start + i) * 2] = sound[static_cast<size_t>(start + i) * 2 + 1] = static_cast<float>(value);
    }
  }
  return sound;
}

SoundSamples sine(double hertz, int64_t frames, int sampleRate) {
  SoundSamples sound;
  for (int64_t i = 0; i < frames; ++i) {
    const float value = static_cast<float>(0.5 * std::sin(2 * M_PI * hertz * static_cast<double>(i) / sampleRate));
    sound.insert(sound.end(), {value, value});
  }
  return sound;
}

SoundSamples noise(int64_t frames, uint32_t seed) {
  std::mt19937 random(seed);
  SoundSamples sound;
  for (int64_t i = 0; i < frames; ++i) {
    const float value = (static_cast<float>(random() >> 8) / 8388608.0f - 1.0f) * 0.25f;
    sound.insert(sound.end(), {value, value});
  }
  return sound;
}

fs::path makeClip(const ClipSpec& spec) {
  const std::string name = nameFor(spec);
  const fs::path target = scratchFolder() / name;
  if (fs::exists(target)) return target;
  const char* samples = reinterpret_cast<const char*>(spec.sound.data());
  const fs::path sound = writeFile(name + ".f32", std::string(samples, spec.sound.size() * sizeof(float)));
  const fs::path pictures = scratchFolder() / (name + ".yuv");
  std::ofstream frames(pictures, std::ios::binary);
  for (int i = 0; i < spec.frameCount; ++i) frames << rawFrame(spec, i);
  frames.close();
  const int status = runProgram(commandFor(spec, target));
  fs::remove(sound);
  fs::remove(pictures);
  if (status != 0) throw std::runtime_error("ffmpeg could not make " + target.string());
  return target;
}

std::string decodedPlanes(const fs::path& file) {
  std::string bytes;
  runProgram({"ffmpeg", "-v", "error", "-nostdin", "-noautorotate", "-i", file.string(), "-map", "0:v:0", "-fps_mode",
              "passthrough", "-f", "rawvideo", "-pix_fmt", "yuv420p", "-"},
             &bytes);
  return bytes;
}

std::vector<int> decodedFrameIndices(const fs::path& file) {
  const MovieProbe probe(file);
  const int width = static_cast<int>(probe.number("v:0", "width")), height = static_cast<int>(probe.number("v:0", "height"));
  const std::string planes = decodedPlanes(file);
  const size_t frame = frameBytes(width, height);
  std::vector<int> indices;
  for (size_t at = 0; frame > 0 && at + frame <= planes.size(); at += frame) {
    indices.push_back(readFrameIndex(reinterpret_cast<const uint8_t*>(planes.data()) + at, width, width, height));
  }
  return indices;
}

SoundSamples decodedSound(const fs::path& file, int sampleRate) {
  std::vector<std::string> command{"ffmpeg", "-v",    "error", "-nostdin", "-i", file.string(),
                                   "-map",   "0:a:0", "-ac",   "2",        "-f", "f32le"};
  if (sampleRate > 0) append(command, {"-ar", std::to_string(sampleRate)});
  command.push_back("-");
  std::string bytes;
  runProgram(command, &bytes);
  SoundSamples sound(bytes.size() / sizeof(float));
  std::copy_n(bytes.data(), sound.size() * sizeof(float), reinterpret_cast<char*>(sound.data()));
  return sound;
}

std::vector<int64_t> burstStarts(const SoundSamples& sound, int sampleRate) {
  std::vector<int64_t> starts;
  int64_t quietUntil = 0;
  for (size_t i = 0; i + 1 < sound.size(); i += 2) {
    const int64_t frame = static_cast<int64_t>(i / 2);
    const bool loud = std::max(std::fabs(sound[i]), std::fabs(sound[i + 1])) > 0.12f;
    if (loud && frame >= quietUntil) starts.push_back(frame);
    if (loud) quietUntil = frame + sampleRate / 50;
  }
  return starts;
}

}  // namespace vidloom::testing
