#include "tests/support/ImageFiles.h"

#include <stdexcept>

#include "tests/support/Fixtures.h"

namespace vidloom::testing {

namespace {

std::string number(uint64_t value, int byteCount, bool bigEndian) {
  std::string bytes;
  for (int i = 0; i < byteCount; ++i) bytes += static_cast<char>(value >> 8 * (bigEndian ? byteCount - 1 - i : i));
  return bytes;
}

uint32_t checkSum(const std::string& bytes) {
  uint32_t sum = 0xFFFFFFFF;
  for (const char byte : bytes) {
    sum ^= static_cast<uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320 : 0);
  }
  return ~sum;
}

}  // namespace

std::string rgbaBytes(int width, int height, const std::function<Rgba(int x, int y)>& color) {
  std::string bytes;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (const uint8_t component : color(x, y)) bytes += static_cast<char>(component);
    }
  }
  return bytes;
}

Rgba quadrant(int x, int y, int width, int height, uint8_t alpha) {
  if (2 * y < height) return 2 * x < width ? Rgba{255, 0, 0, alpha} : Rgba{0, 255, 0, alpha};
  return 2 * x < width ? Rgba{0, 0, 255, alpha} : Rgba{255, 255, 255, alpha};
}

std::filesystem::path makeImage(const std::string& name, int width, int height, const std::string& rgba,
                                const std::vector<std::string>& options, int frames) {
  const std::filesystem::path path = scratchFolder() / name;
  std::string raw;
  for (int i = 0; i < frames; ++i) raw += rgba;
  const std::string source = writeFile(name + ".rgba", raw).string();
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  std::vector<std::string> command{"ffmpeg",   "-v",   "error", "-nostdin", "-y", "-f",  "rawvideo",
                                   "-pix_fmt", "rgba", "-s",    size,       "-i", source};
  command.insert(command.end(), options.begin(), options.end());
  command.push_back(path.string());
  if (runProgram(command) != 0) throw std::runtime_error("ffmpeg cannot make " + name);
  return path;
}

std::string exifBlock(int orientation, bool bigEndian) {
  const auto in = [&](uint64_t value, int byteCount) { return number(value, byteCount, bigEndian); };
  const std::string make = in(271, 2) + in(2, 2) + in(4, 4) + "abc" + '\0';
  const std::string entry = in(274, 2) + in(3, 2) + in(1, 4) + in(static_cast<uint64_t>(orientation), 2) + in(0, 2);
  return (bigEndian ? "MM" : "II") + in(42, 2) + in(8, 4) + in(2, 2) + make + entry + in(0, 4);
}

std::string withJpegExif(const std::string& jpeg, const std::string& exif) {
  const std::string body = std::string("Exif\0\0", 6) + exif;
  return jpeg.substr(0, 2) + "\xFF\xE1" + number(body.size() + 2, 2, true) + body + jpeg.substr(2);
}

std::string withPngExif(const std::string& png, const std::string& exif) {
  constexpr size_t kHeaderEnd = 8 + 25;
  return png.substr(0, kHeaderEnd) + pngChunk("eXIf", exif) + png.substr(kHeaderEnd);
}

std::string withWebpExif(const std::string& webp, const std::string& exif, int width, int height) {
  constexpr uint64_t kExifFlag = 8;
  const std::string extended = "VP8X" + number(10, 4, false) + number(kExifFlag, 4, false) +
                               number(static_cast<uint64_t>(width) - 1, 3, false) +
                               number(static_cast<uint64_t>(height) - 1, 3, false);
  const std::string tail = "EXIF" + number(exif.size(), 4, false) + exif + std::string(exif.size() % 2, '\0');
  const std::string body = "WEBP" + extended + webp.substr(12) + tail;
  return "RIFF" + number(body.size(), 4, false) + body;
}

std::string withTiffOrientation(const std::string& tiff, int orientation) { return withTiffTag(tiff, 274, orientation); }

std::string withTiffTag(const std::string& tiff, int tag, int value) {
  const auto at = [&](size_t place) { return static_cast<size_t>(static_cast<uint8_t>(tiff[place])); };
  const size_t directory = at(4) | at(5) << 8 | at(6) << 16 | at(7) << 24;
  const size_t count = at(directory) | at(directory + 1) << 8;
  const std::string entry = number(static_cast<uint64_t>(tag), 2, false) + number(3, 2, false) + number(1, 4, false) +
                            number(static_cast<uint64_t>(value), 4, false);
  // Entries are in the order of their tags.
  const auto tagAt = [&](size_t index) {
    return static_cast<int>(at(directory + 2 + 12 * index) | at(directory + 3 + 12 * index) << 8);
  };
  size_t before = 0;
  while (before < count && tagAt(before) < tag) ++before;
  const size_t after = before < count && tagAt(before) == tag ? before + 1 : before;
  const std::string padding(tiff.size() % 2, '\0'), entries = tiff.substr(directory + 2, 12 * count);
  return tiff.substr(0, 4) + number(tiff.size() + padding.size(), 4, false) + tiff.substr(8) + padding +
         number(count + 1 - (after - before), 2, false) + entries.substr(0, 12 * before) + entry + entries.substr(12 * after) +
         number(0, 4, false);
}

std::string pngChunk(const std::string& type, const std::string& body) {
  return number(body.size(), 4, true) + type + body + number(checkSum(type + body), 4, true);
}

}  // namespace vidloom::testing
