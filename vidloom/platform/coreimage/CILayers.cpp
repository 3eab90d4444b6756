#include "vidloom/platform/coreimage/CILayers.h"

#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/coreimage/CIGrid.h"
#include "vidloom/platform/coreimage/CIRecipe.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

namespace {

PicturePlane movedPlane(const PicturePlane& plane, ptrdiff_t x, ptrdiff_t y) {
  return plane.data ? PicturePlane{plane.data + y * plane.stride + x, plane.stride} : plane;
}

/// A part of a picture that begins at an even sample, in the picture's own memory.
PictureRef partOf(const PictureRef& picture, const SampleRect& part) {
  if (part == SampleRect{0, 0, picture->width, picture->height}) return picture;
  const auto cut = std::make_shared<Picture>(*picture);
  cut->width = part.width();
  cut->height = part.height();
  cut->y = movedPlane(picture->y, part.x0, part.y0);
  cut->cb = movedPlane(picture->cb, part.x0 / 2, part.y0 / 2);
  cut->cr = movedPlane(picture->cr, part.x0 / 2, part.y0 / 2);
  cut->alpha = movedPlane(picture->alpha, part.x0, part.y0);
  cut->owner = picture;
  return cut;
}

class Collector {
 public:
  Collector(const SampleRect& output, const PictureColor& color) : output_(output), color_(color) {}

  std::vector<PictureLayer> takeLayers() { return std::move(layers_); }

  /// False for what is no layer.
  bool add(const CIImageRef& image, const CGAffineTransform& map) {
    const auto& step = CIRecipe::of(*image)->step();
    if (std::holds_alternative<std::monostate>(step)) return true;
    if (const auto* source = std::get_if<CISource>(&step)) return addSource(*source, flippedRect(image->extent()), map);
    if (const auto* transformed = std::get_if<CITransformed>(&step)) {
      return add(transformed->input, CGAffineTransformConcat(flippedTransform(transformed->matrix), map));
    }
    if (const auto* composite = std::get_if<CIComposite>(&step)) return add(composite->bottom, map) && add(composite->top, map);
    if (const auto* cropped = std::get_if<CICropped>(&step)) return addCropped(*cropped, map);
    return false;
  }

 private:
  bool addCropped(const CICropped& step, const CGAffineTransform& map) {
    const CGRect visible = flippedRect(step.rect);
    const bool isUpright = map.b == 0 && map.c == 0;
    if (isUpright &&
        CGRectContainsRect(CGRectApplyAffineTransform(visible, map), CGRectMake(0, 0, output_.width(), output_.height()))) {
      return add(step.input, map);
    }
    const auto* source = std::get_if<CISource>(&CIRecipe::of(*step.input)->step());
    return source && addSource(*source, visible, map);
  }

  /// `visible` lies within the source, which lies above the origin of the grid.
  bool addSource(const CISource& source, const CGRect& visible, const CGAffineTransform& map) {
    const PictureRef picture = pictureOf(source);
    if (!picture) return false;
    const SampleRect part = moved(samplesTouched(visible), 0, picture->height);
    if (moved(samplesCovered(visible), 0, picture->height) != part || part.x0 % 2 != 0 || part.y0 % 2 != 0) return false;
    const CGAffineTransform toGrid{1, 0, 0, 1, static_cast<double>(part.x0), static_cast<double>(part.y0 - picture->height)};
    PictureLayer layer{partOf(picture, part), CGSizeMake(part.width(), part.height()), CGAffineTransformConcat(toGrid, map)};
    layers_.push_back(std::move(layer));
    return true;
  }

  PictureRef pictureOf(const CISource& source) const {
    if (source.picture) return source.picture;
    if (source.pixelBuffer) return CVPixelBufferCopyPicture(source.pixelBuffer, CVPictureAlpha::keep);
    return CGImageCopyPicture(source.image, color_);
  }

  const SampleRect output_;
  const PictureColor color_;
  std::vector<PictureLayer> layers_;
};

}  // namespace

std::optional<std::vector<PictureLayer>> layersOf(const CIImageRef& image, const SampleRect& rect, const PictureColor& color) {
  Collector collector(rect, color);
  if (!collector.add(image, {1, 0, 0, 1, -static_cast<double>(rect.x0), -static_cast<double>(rect.y0)})) return std::nullopt;
  return collector.takeLayers();
}

}  // namespace vidloom
