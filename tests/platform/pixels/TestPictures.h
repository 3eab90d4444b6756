// Pictures for the tests of the kernels: noise, gradients, and ways to look at them.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom::test {

inline const PictureColor kLimited709{};
inline const PictureColor kFull709{ColorMatrix::bt709, true};
inline const PictureColor kLimited601{ColorMatrix::bt601, false, "smpte170m", "smpte170m", "smpte170m"};
inline const PictureColor kFull601{ColorMatrix::bt601, true, "smpte170m", "smpte170m", "smpte170m"};

/// A plane in memory of exactly its size, so that a sanitizer sees every access outside it.
class Plane {
 public:
  Plane(int width, int height, uint8_t value = 0)
      : width_(width), height_(height), bytes_(static_cast<size_t>(width) * height, value) {}

  uint8_t& at(int x, int y) { return bytes_[static_cast<size_t>(y) * width_ + x]; }
  uint8_t at(int x, int y) const { return bytes_[static_cast<size_t>(y) * width_ + x]; }
  int width() const { return width_; }
  int height() const { return height_; }
  PlaneView view() const { return {bytes_.data(), width_, width_, height_}; }
  MutablePlaneView writable() { return {bytes_.data(), width_, width_, height_}; }
  friend bool operator==(const Plane&, const Plane&) = default;

 private:
  int width_, height_;
  std::vector<uint8_t> bytes_;
};

/// Turned about the origin, enlarged and moved.
inline CGAffineTransform turnedBy(double degrees, double scale, double tx, double ty) {
  const double angle = degrees * std::numbers::pi / 180;
  return {scale * std::cos(angle), scale * std::sin(angle), -scale * std::sin(angle), scale * std::cos(angle), tx, ty};
}

inline Plane noisePlane(int width, int height, unsigned seed, int low = 0, int high = 255) {
  Plane plane(width, height);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> codes(low, high);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) plane.at(x, y) = static_cast<uint8_t>(codes(random));
  }
  return plane;
}

using SampleFunction = std::function<int(int plane, int x, int y)>;

inline std::shared_ptr<MutablePicture> makePicture(int width, int height, const PictureColor& color, bool alpha,
                                                   const SampleFunction& sample) {
  auto picture = PicturePool::shared().make(width, height, color, alpha);
  for (int plane = 0; plane < (alpha ? 4 : 3); ++plane) {
    const MutablePlaneView view = planeOf(*picture, plane);
    for (int y = 0; y < view.height; ++y) {
      for (int x = 0; x < view.width; ++x) view.row(y)[x] = static_cast<uint8_t>(sample(plane, x, y));
    }
  }
  return picture;
}

inline std::shared_ptr<MutablePicture> flatPicture(int width, int height, int y, int cb, int cr,
                                                   const PictureColor& color = kLimited709) {
  return makePicture(width, height, color, false, [=](int plane, int, int) { return plane == 0 ? y : plane == 1 ? cb : cr; });
}

inline std::shared_ptr<MutablePicture> noisePicture(int width, int height, unsigned seed, const PictureColor& color = kLimited709) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> codes(16, 235);
  return makePicture(width, height, color, false, [&](int, int, int) { return codes(random); });
}

inline int sampleOf(const Picture& picture, int plane, int x, int y) { return planeOf(picture, plane).row(y)[x]; }

/// The largest difference between two pictures of one size, over all planes.
inline int largestDifference(const Picture& one, const Picture& other) {
  int largest = 0;
  for (int plane = 0; plane < 3; ++plane) {
    const PlaneView view = planeOf(one, plane);
    for (int y = 0; y < view.height; ++y) {
      for (int x = 0; x < view.width; ++x) largest = std::max(largest, std::abs(view.row(y)[x] - planeOf(other, plane).row(y)[x]));
    }
  }
  return largest;
}

}  // namespace vidloom::test
