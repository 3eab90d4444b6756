// Rewriting the index of MP4 and MOV files whose index comes last.
#include <cstring>
#include <memory>
#include <stdexcept>

#include "tests/support/Fixtures.h"

namespace vidloom::testing {

namespace {

namespace fs = std::filesystem;

struct Box {
  std::string type;
  std::string body;
  std::vector<Box> children;
};

constexpr const char* kParents[] = {"moov", "trak", "mdia", "minf", "stbl", "edts"};

bool isParent(const std::string& type) {
  for (const char* parent : kParents) {
    if (type == parent) return true;
  }
  return false;
}

uint64_t number(const std::string& bytes, size_t at, int count) {
  uint64_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | static_cast<uint8_t>(bytes.at(at + static_cast<size_t>(i)));
  return value;
}

std::string bytesOf(uint64_t value, int count) {
  std::string bytes;
  for (int i = count - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i) & 255);
  return bytes;
}

std::vector<Box> parse(const std::string& data) {
  std::vector<Box> boxes;
  for (size_t at = 0; at + 8 <= data.size();) {
    size_t size = number(data, at, 4), head = 8;
    if (size == 1) {
      size = number(data, at + 8, 8);
      head = 16;
    }
    if (size == 0 || size > data.size() - at) size = data.size() - at;
    if (size < head) throw std::runtime_error("box smaller than its header");
    Box box{data.substr(at + 4, 4), data.substr(at + head, size - head), {}};
    if (isParent(box.type)) box.children = parse(box.body);
    boxes.push_back(std::move(box));
    at += size;
  }
  return boxes;
}

std::string build(const std::vector<Box>& boxes) {
  std::string data;
  for (const Box& box : boxes) {
    const std::string body = isParent(box.type) ? build(box.children) : box.body;
    data += bytesOf(body.size() + 8, 4) + box.type + body;
  }
  return data;
}

Box& child(std::vector<Box>& boxes, const std::string& type) {
  for (Box& box : boxes) {
    if (box.type == type) return box;
  }
  throw std::runtime_error("no box " + type);
}

std::vector<Box>& trackOf(std::vector<Box>& file, const std::string& handler) {
  for (Box& box : child(file, "moov").children) {
    if (box.type != "trak") continue;
    if (child(child(box.children, "mdia").children, "hdlr").body.substr(8, 4) == handler) return box.children;
  }
  throw std::runtime_error("no track " + handler);
}

fs::path store(const fs::path& original, const std::vector<Box>& boxes) {
  static int count = 0;
  return writeFile(original.stem().string() + "-edit" + std::to_string(++count) + original.extension().string(), build(boxes));
}

}  // namespace

fs::path withEdits(const fs::path& file, const std::string& handler, const std::vector<EditEntry>& edits) {
  std::vector<Box> boxes = parse(readFile(file));
  std::vector<Box>& track = trackOf(boxes, handler);
  std::erase_if(track, [](const Box& box) { return box.type == "edts"; });
  if (!edits.empty()) {
    std::string list = bytesOf(1 << 24, 4) + bytesOf(edits.size(), 4);
    for (const EditEntry& edit : edits) {
      list += bytesOf(static_cast<uint64_t>(edit.duration), 8) + bytesOf(static_cast<uint64_t>(edit.mediaTime), 8) +
              bytesOf(1 << 16, 4);
    }
    track.insert(track.begin() + 1, Box{"edts", {}, {Box{"elst", list, {}}}});
  }
  return store(file, boxes);
}

fs::path withMatrix(const fs::path& file, const std::vector<double>& matrix) {
  std::vector<Box> boxes = parse(readFile(file));
  std::string& header = child(trackOf(boxes, "vide"), "tkhd").body;
  const size_t at = header[0] != 0 ? 52 : 40;
  const size_t places[] = {0, 1, 3, 4, 6, 7};
  for (size_t i = 0; i < 6; ++i) {
    const auto fixed = static_cast<uint32_t>(static_cast<int32_t>(matrix.at(i) * 65536));
    header.replace(at + places[i] * 4, 4, bytesOf(fixed, 4));
  }
  return store(file, boxes);
}

fs::path withTrackDisabled(const fs::path& file, const std::string& handler) {
  std::vector<Box> boxes = parse(readFile(file));
  std::string& header = child(trackOf(boxes, handler), "tkhd").body;
  header[3] = static_cast<char>(header[3] & ~1);
  return store(file, boxes);
}

}  // namespace vidloom::testing
