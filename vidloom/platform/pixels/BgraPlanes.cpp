#include "vidloom/platform/pixels/BgraPlanes.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cstring>

#include "vidloom/platform/pixels/BlendKernels.h"

namespace vidloom {
namespace {

constexpr int kAlpha = 3;

int strideOf(const PlaneView& plane) { return static_cast<int>(plane.stride); }
int strideOf(const MutablePlaneView& plane) { return static_cast<int>(plane.stride); }

}  // namespace

void splitBGRA(const uint8_t* bgra, ptrdiff_t stride, AlphaMode alpha, const MutableBgraPlaneViews& planes) {
  const auto& [b, g, r, a] = planes;
  libyuv::SplitARGBPlane(bgra, static_cast<int>(stride), r.data, strideOf(r), g.data, strideOf(g), b.data, strideOf(b), a.data,
                         strideOf(a), a.width, a.height);
  if (alpha == AlphaMode::straight) premultiplyPlanes(planes);
  if (alpha != AlphaMode::ignored) return;
  for (int y = 0; y < a.height; ++y) std::memset(a.row(y), 255, static_cast<size_t>(a.width));
}

void mergeBGRA(const BgraPlaneViews& planes, uint8_t* bgra, ptrdiff_t stride) {
  const auto& [b, g, r, a] = planes;
  libyuv::MergeARGBPlane(r.data, strideOf(r), g.data, strideOf(g), b.data, strideOf(b), a.data, strideOf(a), bgra,
                         static_cast<int>(stride), a.width, a.height);
}

void premultiplyPlanes(const MutableBgraPlaneViews& planes) {
  const MutablePlaneView& alpha = planes[kAlpha];
  for (int plane = 0; plane < kAlpha; ++plane) {
    for (int y = 0; y < alpha.height; ++y) {
      premultiplyRow(planes[plane].row(y), planes[plane].row(y), alpha.row(y), alpha.width);
    }
  }
}

void unpremultiplyPlanes(const MutableBgraPlaneViews& planes) {
  const MutablePlaneView& alphas = planes[kAlpha];
  for (int y = 0; y < alphas.height; ++y) {
    const uint8_t* alpha = alphas.row(y);
    for (int plane = 0; plane < kAlpha; ++plane) {
      uint8_t* row = planes[plane].row(y);
      for (int x = 0; x < alphas.width; ++x) {
        if (alpha[x] == 255) continue;
        row[x] = alpha[x] == 0 ? uint8_t{0} : static_cast<uint8_t>(std::min(255, (row[x] * 255 + alpha[x] / 2) / alpha[x]));
      }
    }
  }
}

}  // namespace vidloom
