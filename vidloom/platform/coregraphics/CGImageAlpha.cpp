#include "vidloom/platform/coregraphics/CGImageAlpha.h"

namespace vidloom {

AlphaMode alphaModeOf(CGImageAlphaInfo info) {
  switch (info) {
    case kCGImageAlphaPremultipliedLast:
    case kCGImageAlphaPremultipliedFirst:
      return AlphaMode::premultiplied;
    case kCGImageAlphaLast:
    case kCGImageAlphaFirst:
      return AlphaMode::straight;
    default:
      return AlphaMode::ignored;
  }
}

}  // namespace vidloom
