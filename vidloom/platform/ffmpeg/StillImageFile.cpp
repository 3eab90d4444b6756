#include "vidloom/platform/ffmpeg/StillImageFile.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "vidloom/platform/ffmpeg/TiffDirectory.h"
#include "vidloom/platform/ffmpeg/WebpFile.h"

namespace vidloom {

namespace {

const std::string kCutOff = "is cut off";
constexpr std::string_view kPngSignature("\x89PNG\r\n\x1a\n", 8);
constexpr std::string_view kExifPrefix("Exif\0\0", 6);

bool beginsWith(ByteSpan bytes, std::string_view start) {
  return bytes.size() >= start.size() && std::memcmp(bytes.data(), start.data(), start.size()) == 0;
}

int exifOrientation(ByteSpan exif) {
  if (beginsWith(exif, kExifPrefix)) exif = exif.subspan(kExifPrefix.size());
  const auto directory = TiffDirectory::read(exif);
  return directory ? directory->orientation() : 1;
}

/// Profiles are inflated without a limit by the decoder; text, which is too, and the frames of an animation are of no use here.
bool isPngChunkKept(uint32_t type, uint32_t size) {
  constexpr uint32_t kLargestProfile = 64 * 1024;
  constexpr std::array kKept{boxType("IHDR"), boxType("PLTE"), boxType("tRNS"), boxType("IDAT"), boxType("IEND"), boxType("sRGB")};
  return std::find(kKept.begin(), kKept.end(), type) != kKept.end() || (type == boxType("iCCP") && size <= kLargestProfile);
}

bool inspectPng(ByteSpan bytes, StillImageFile& file, std::string& problem) {
  constexpr size_t kFrameBytes = 12;
  file.format = StillImageFormat::png;
  file.data.assign(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(kPngSignature.size()));
  for (size_t at = kPngSignature.size();;) {
    ByteReader header(bytes.subspan(at));
    const uint32_t size = header.u32(), type = header.u32();
    if (header.isExhausted() || header.remaining() < size_t{size} + 4) break;
    ByteReader body(header.rest().first(size));
    if (type == boxType("IHDR")) {
      file.width = body.u32();
      file.height = body.u32();
    }
    if (type == boxType("eXIf")) file.orientation = exifOrientation(body.rest());
    const auto chunk = bytes.subspan(at, size + kFrameBytes);
    if (isPngChunkKept(type, size)) file.data.insert(file.data.end(), chunk.begin(), chunk.end());
    if (type == boxType("IEND")) return true;
    at += size + kFrameBytes;
  }
  problem = kCutOff;
  return false;
}

bool isFrameHeader(uint8_t marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool isBareMarker(uint8_t marker) { return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7); }

void readJpegSegment(uint8_t marker, ByteSpan segment, StillImageFile& file) {
  if (marker == 0xE1 && beginsWith(segment, kExifPrefix)) file.orientation = exifOrientation(segment);
  if (!isFrameHeader(marker) || file.width != 0) return;
  ByteReader frame(segment);
  frame.skip(1);
  file.height = frame.u16();
  file.width = frame.u16();
  file.components = frame.u8();
}

/// Within the data of a scan 0xFF is always followed by 0 or a restart marker, so an end marker after it is the picture's.
bool hasEndMarker(ByteSpan scan) {
  constexpr std::array<uint8_t, 2> kEnd{0xFF, 0xD9};
  return std::search(scan.begin(), scan.end(), kEnd.begin(), kEnd.end()) != scan.end();
}

bool inspectJpeg(ByteSpan bytes, StillImageFile& file, std::string& problem) {
  constexpr uint8_t kScan = 0xDA, kEnd = 0xD9;
  file.format = StillImageFormat::jpeg;
  ByteReader reader(bytes);
  reader.skip(2);
  while (reader.remaining() >= 4) {
    if (reader.u8() != 0xFF) continue;
    uint8_t marker = reader.u8();
    while (marker == 0xFF && reader.remaining() > 0) marker = reader.u8();
    if (marker == 0 || isBareMarker(marker)) continue;
    if (marker == kEnd || (marker == kScan && file.width == 0)) {
      problem = "holds no picture";
      return false;
    }
    const size_t size = std::max<size_t>(reader.u16(), 2) - 2;
    if (size > reader.remaining()) break;
    if (marker == kScan) {
      if (!hasEndMarker(reader.rest())) break;
      file.data.assign(bytes.begin(), bytes.end());
      return true;
    }
    readJpegSegment(marker, reader.rest().first(size), file);
    reader.skip(size);
  }
  problem = kCutOff;
  return false;
}

size_t gifPaletteBytes(uint8_t flags) { return (flags & 0x80) != 0 ? size_t{3} << ((flags & 7) + 1) : 0; }

void skipGifBlocks(ByteReader& reader) {
  for (size_t size = reader.u8(); size != 0; size = reader.u8()) reader.skip(size);
}

bool inspectGif(ByteSpan bytes, StillImageFile& file, std::string& problem) {
  constexpr uint8_t kExtension = 0x21, kImage = 0x2C, kTrailer = 0x3B;
  file.format = StillImageFormat::gif;
  ByteReader reader(bytes);
  reader.skip(6);
  file.width = reader.u8() | reader.u8() << 8;
  file.height = reader.u8() | reader.u8() << 8;
  const uint8_t flags = reader.u8();
  reader.skip(2 + gifPaletteBytes(flags));
  for (uint8_t kind = reader.u8(); kind == kExtension; kind = reader.u8()) {
    reader.skip(1);
    skipGifBlocks(reader);
    if (reader.remaining() == 0) break;
  }
  const size_t imageAt = bytes.size() - reader.remaining() - 1;
  if (!reader.isExhausted() && bytes[imageAt] != kImage) {
    problem = "holds no picture";
    return false;
  }
  reader.skip(8);
  reader.skip(gifPaletteBytes(reader.u8()) + 1);
  skipGifBlocks(reader);
  if (reader.isExhausted()) {
    problem = kCutOff;
    return false;
  }
  file.data.assign(bytes.begin(), bytes.end() - static_cast<ptrdiff_t>(reader.remaining()));
  file.data.push_back(kTrailer);
  return true;
}

constexpr uint32_t kOldJpeg = 6, kJpeg = 7;

bool inspectTiff(ByteSpan bytes, const TiffDirectory& directory, StillImageFile& file, std::string& problem) {
  file.format = StillImageFormat::tiff;
  file.width = directory.value(kTiffWidth).value_or(0);
  file.height = directory.value(kTiffHeight).value_or(0);
  file.orientation = directory.orientation();
  file.isPremultiplied = directory.value(kTiffExtraSamples) == 1U;
  file.data.assign(bytes.begin(), bytes.end());
  const uint32_t compression = directory.value(kTiffCompression).value_or(1);
  if (file.width <= 0 || file.height <= 0) {
    problem = "holds no picture, or is cut off";
  } else if (directory.value(kTiffTileWidth)) {
    problem = "is stored in tiles, which are not read";  // the decoder leaves them black without a word, as it does with JPEG
  } else if (compression == kOldJpeg || compression == kJpeg) {
    problem = "is a TIFF file with JPEG data in it, which is not read";
  }
  return problem.empty();
}

bool inspectWebp(ByteSpan bytes, StillImageFile& file, std::string& problem) {
  file.format = StillImageFormat::webp;
  WebpFile webp;
  if (!webp.read(bytes, problem)) return false;
  file.width = webp.width();
  file.height = webp.height();
  file.frameX = webp.frameX();
  file.frameY = webp.frameY();
  file.orientation = exifOrientation(webp.exif());
  file.data = webp.takeFirstFrame();
  return true;
}

bool inspectAny(ByteSpan bytes, StillImageFile& file, std::string& problem) {
  if (beginsWith(bytes, kPngSignature)) return inspectPng(bytes, file, problem);
  if (beginsWith(bytes, "\xFF\xD8")) return inspectJpeg(bytes, file, problem);
  if (beginsWith(bytes, "GIF87a") || beginsWith(bytes, "GIF89a")) return inspectGif(bytes, file, problem);
  if (WebpFile::isWebp(bytes)) return inspectWebp(bytes, file, problem);
  if (const auto directory = TiffDirectory::read(bytes)) return inspectTiff(bytes, *directory, file, problem);
  problem = "is no image file that can be read (PNG, JPEG, WebP, GIF or TIFF)";
  return false;
}

}  // namespace

std::optional<StillImageFile> StillImageFile::inspect(ByteSpan bytes, std::string& problem) {
  StillImageFile file;
  if (!inspectAny(bytes, file, problem)) return std::nullopt;
  return file;
}

}  // namespace vidloom
