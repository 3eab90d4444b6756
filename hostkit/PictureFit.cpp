#include "hostkit/PictureFit.h"

#include <algorithm>
#include <cmath>

namespace vidloom {

CGAffineTransform transformOfFit(ProjectFit fit, const CGSize& stored, const CGAffineTransform& upright, const CGSize& renderSize) {
  const double width = std::abs(upright.a * stored.width + upright.c * stored.height);
  const double height = std::abs(upright.b * stored.width + upright.d * stored.height);
  if (fit == ProjectFit::none || width <= 0 || height <= 0) return upright;
  const double across = renderSize.width / width;
  const double down = renderSize.height / height;
  const double scale = fit == ProjectFit::contain ? std::min(across, down) : std::max(across, down);
  const CGAffineTransform placed{
      scale, 0, 0, scale, (renderSize.width - scale * width) / 2, (renderSize.height - scale * height) / 2};
  return CGAffineTransformConcat(upright, placed);
}

}  // namespace vidloom
