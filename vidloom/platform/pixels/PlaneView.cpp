#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom {

PlaneView planeOf(const Picture& picture, int index) {
  const PicturePlane planes[] = {picture.y, picture.cb, picture.cr, picture.alpha};
  const bool chroma = index == 1 || index == 2;
  return {planes[index].data, planes[index].stride, chroma ? picture.chromaWidth() : picture.width,
          chroma ? picture.chromaHeight() : picture.height};
}

MutablePlaneView planeOf(MutablePicture& picture, int index) {
  const PlaneView plane = planeOf(static_cast<const Picture&>(picture), index);
  return {const_cast<uint8_t*>(plane.data), plane.stride, plane.width, plane.height};
}

}  // namespace vidloom
