// Memory for vector code.
#pragma once

#include <cstddef>
#include <vector>

namespace vidloom {

/// An array of floats that begins at a multiple of 64 bytes.
class AlignedFloats {
 public:
  AlignedFloats() = default;
  explicit AlignedFloats(size_t count) : lines_((count + kFloatsPerLine - 1) / kFloatsPerLine) {}
  float* data() { return lines_.empty() ? nullptr : lines_.front().floats; }
  const float* data() const { return lines_.empty() ? nullptr : lines_.front().floats; }
  float& operator[](size_t index) { return data()[index]; }
  /// At least the count that it was made with.
  size_t size() const { return lines_.size() * kFloatsPerLine; }

 private:
  static constexpr size_t kFloatsPerLine = 16;
  struct alignas(64) Line {
    float floats[kFloatsPerLine];
  };
  std::vector<Line> lines_;
};

}  // namespace vidloom
