#include "vidloom/platform/ffmpeg/WebpFile.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vidloom {

namespace {

constexpr size_t kRiffBytes = 12, kHeaderBytes = 8;
constexpr uint8_t kAlphaFlag = 0x10;

uint32_t littleEndian(ByteSpan bytes, size_t at, size_t byteCount) {
  uint32_t number = 0;
  for (size_t i = byteCount; i > 0; --i) number = number << 8 | (at + i <= bytes.size() ? bytes[at + i - 1] : 0U);
  return number;
}

void appendNumber(std::vector<uint8_t>& bytes, uint32_t number, int byteCount) {
  for (int i = 0; i < byteCount; ++i) bytes.push_back(static_cast<uint8_t>(number >> 8 * i));
}

void appendType(std::vector<uint8_t>& bytes, uint32_t type) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(type >> shift));
}

}  // namespace

bool WebpFile::isWebp(ByteSpan bytes) {
  ByteReader reader(bytes);
  const bool isRiff = reader.u32() == boxType("RIFF");
  reader.skip(4);
  return isRiff && reader.u32() == boxType("WEBP");
}

bool WebpFile::next(ByteSpan& rest, Chunk& chunk) {
  if (rest.size() < kHeaderBytes) return false;
  const size_t size = littleEndian(rest, 4, 4);
  if (size > rest.size() - kHeaderBytes) return false;
  chunk = {ByteReader(rest).u32(), rest.subspan(kHeaderBytes, size)};
  rest = rest.subspan(std::min(rest.size(), kHeaderBytes + size + size % 2));
  return true;
}

bool WebpFile::read(ByteSpan bytes, std::string& problem) {
  problem = "is cut off";
  const size_t size = littleEndian(bytes, 4, 4);
  if (size < 4 || size > bytes.size() - kHeaderBytes) return false;
  ByteSpan rest = bytes.subspan(kRiffBytes, size - 4);
  for (Chunk chunk; next(rest, chunk);) readChunk(chunk);
  if (hasPicture_) return true;
  problem = "holds no picture";
  return false;
}

void WebpFile::readChunk(const Chunk& chunk) {
  if (chunk.type == boxType("VP8X")) {
    width_ = littleEndian(chunk.body, 4, 3) + 1;
    height_ = littleEndian(chunk.body, 7, 3) + 1;
  } else if (chunk.type == boxType("EXIF")) {
    exif_ = chunk.body;
  } else if (chunk.type == boxType("ANMF")) {
    if (!hasPicture_) readAnimationFrame(chunk.body);
  } else {
    readPicture(chunk);
  }
}

void WebpFile::readAnimationFrame(ByteSpan body) {
  constexpr size_t kFrameHeaderBytes = 16;
  if (body.size() < kFrameHeaderBytes) return;
  frameX_ = 2 * littleEndian(body, 0, 3);
  frameY_ = 2 * littleEndian(body, 3, 3);
  ByteSpan rest = body.subspan(kFrameHeaderBytes);
  for (Chunk chunk; next(rest, chunk);) readPicture(chunk);
}

void WebpFile::readPicture(const Chunk& chunk) {
  if (hasPicture_) return;
  const ByteSpan body = chunk.body;
  if (chunk.type == boxType("ALPH")) {
    hasAlphaChunk_ = true;
  } else if (chunk.type == boxType("VP8 ")) {
    frameWidth_ = littleEndian(body, 6, 2) & 0x3FFF;
    frameHeight_ = littleEndian(body, 8, 2) & 0x3FFF;
  } else if (chunk.type == boxType("VP8L")) {
    const uint32_t sides = littleEndian(body, 1, 4);
    frameWidth_ = (sides & 0x3FFF) + 1;
    frameHeight_ = (sides >> 14 & 0x3FFF) + 1;
  } else {
    return;
  }
  append(chunk);
  hasPicture_ = chunk.type != boxType("ALPH");
  if (hasPicture_ && width_ == 0) std::tie(width_, height_) = std::pair(frameWidth_, frameHeight_);
}

void WebpFile::append(const Chunk& chunk) {
  appendType(frame_, chunk.type);
  appendNumber(frame_, static_cast<uint32_t>(chunk.body.size()), 4);
  frame_.insert(frame_.end(), chunk.body.begin(), chunk.body.end());
  if (chunk.body.size() % 2 != 0) frame_.push_back(0);
}

std::vector<uint8_t> WebpFile::takeFirstFrame() {
  std::vector<uint8_t> file;
  appendType(file, boxType("RIFF"));
  constexpr uint32_t kExtendedBytes = 10;
  appendNumber(file, static_cast<uint32_t>(frame_.size()) + (hasAlphaChunk_ ? 4 + 8 + kExtendedBytes : 4), 4);
  appendType(file, boxType("WEBP"));
  if (hasAlphaChunk_) {
    appendType(file, boxType("VP8X"));
    appendNumber(file, kExtendedBytes, 4);
    appendNumber(file, kAlphaFlag, 4);
    appendNumber(file, frameWidth_ - 1, 3);
    appendNumber(file, frameHeight_ - 1, 3);
  }
  file.insert(file.end(), frame_.begin(), frame_.end());
  frame_.clear();
  return file;
}

}  // namespace vidloom
