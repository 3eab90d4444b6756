#include "vidloom/platform/pixels/PlaneHalving.h"

#include <libyuv/scale.h>

#include <algorithm>
#include <cstring>

#include "vidloom/platform/pixels/ScaleKernels.h"

namespace vidloom {
namespace {

void halveColumns(const PlaneView& source, const MutablePlaneView& destination) {
  for (int y = 0; y < source.height; ++y) {
    halveRow(destination.row(y), source.row(y), source.width / 2);
    if (source.width % 2) destination.row(y)[source.width / 2] = source.row(y)[source.width - 1];
  }
}

void halveLines(const PlaneView& source, const MutablePlaneView& destination) {
  constexpr uint16_t halves[] = {128, 128};
  for (int y = 0; y < destination.height; ++y) {
    const uint8_t* rows[] = {source.row(2 * y), source.row(std::min(2 * y + 1, source.height - 1))};
    mixRows(destination.row(y), rows, halves, 2, source.width);
  }
}

void halveBoth(const PlaneView& source, const MutablePlaneView& destination) {
  const int width = source.width / 2, height = source.height / 2;
  if (width > 0 && height > 0) {
    libyuv::ScalePlane(source.data, static_cast<int>(source.stride), 2 * width, 2 * height, destination.data,
                       static_cast<int>(destination.stride), width, height, libyuv::kFilterBox);
  }
  for (int y = 0; source.width % 2 && y < destination.height; ++y) {
    const int here = source.row(2 * y)[source.width - 1];
    const int below = source.row(std::min(2 * y + 1, source.height - 1))[source.width - 1];
    destination.row(y)[width] = static_cast<uint8_t>((here + below + 1) / 2);
  }
  if (source.height % 2) halveRow(destination.row(height), source.row(source.height - 1), width);
}

}  // namespace

void halvePlane(const PlaneView& source, bool across, bool down, const MutablePlaneView& destination) {
  if (across && down) return halveBoth(source, destination);
  if (across) return halveColumns(source, destination);
  if (down) halveLines(source, destination);
}

}  // namespace vidloom
