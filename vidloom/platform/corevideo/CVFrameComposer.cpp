#include "vidloom/platform/corevideo/CVFrameComposer.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/corevideo/CVPixelColor.h"
#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/pixels/LayerRaster.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {
namespace {

PictureColor colorOf(const CVPixelBufferRef& buffer) {
  std::map<std::string, std::string> attachments;
  for (const auto& key : {kCVImageBufferColorPrimariesKey, kCVImageBufferTransferFunctionKey, kCVImageBufferYCbCrMatrixKey}) {
    const std::string value = CVBufferGetAttachment(buffer, key);
    if (!value.empty()) attachments[key] = value;
  }
  const PictureColor assumed = defaultPictureColor(CVPixelBufferGetWidth(buffer), CVPixelBufferGetHeight(buffer));
  return pictureColorWithAttachments(assumed, attachments);
}

/// A stretch of samples that holds what is shown along an axis, on the grid of the chroma samples.
struct AxisPart {
  AxisPart(double begin, double end, int length) {
    shownBegin = snapped(std::clamp(begin, 0.0, double(length)));
    shownEnd = snapped(std::clamp(end, 0.0, double(length)));
    first = static_cast<int>(shownBegin) & ~1;
    last = std::min(length, (static_cast<int>(std::ceil(shownEnd)) + 1) & ~1);
  }
  static double snapped(double edge) {
    constexpr double kSnapDistance = 1.0 / 64;
    return std::abs(edge - std::round(edge)) < kSnapDistance ? std::round(edge) : edge;
  }
  bool isEmpty() const { return !(shownBegin < shownEnd); }
  bool isExact() const { return shownBegin == first && shownEnd == last; }
  int length() const { return last - first; }

  double shownBegin, shownEnd;
  int first, last;
};

PicturePlane movedPlane(const PicturePlane& plane, ptrdiff_t x, ptrdiff_t y) {
  return {plane.data == nullptr ? nullptr : plane.data + y * plane.stride + x, plane.stride};
}

/// The samples of a picture within both parts, where they are.
PictureRef partOf(const PictureRef& picture, const AxisPart& across, const AxisPart& down) {
  if (across.length() == picture->width && down.length() == picture->height) return picture;
  auto part = std::make_shared<Picture>(*picture);
  part->width = across.length();
  part->height = down.length();
  part->y = movedPlane(picture->y, across.first, down.first);
  part->cb = movedPlane(picture->cb, across.first / 2, down.first / 2);
  part->cr = movedPlane(picture->cr, across.first / 2, down.first / 2);
  part->alpha = movedPlane(picture->alpha, across.first, down.first);
  part->owner = picture;
  return part;
}

/// Cuts what is to be shown out of the layer's picture. False where that is nothing.
bool cut(PictureLayer& layer, const CGRect& part) {
  const double samplesAcross = layer.picture->width / layer.displaySize.width;
  const double samplesDown = layer.picture->height / layer.displaySize.height;
  const AxisPart across(part.origin.x * samplesAcross, (part.origin.x + part.size.width) * samplesAcross, layer.picture->width);
  const AxisPart down(part.origin.y * samplesDown, (part.origin.y + part.size.height) * samplesDown, layer.picture->height);
  if (across.isEmpty() || down.isEmpty()) return false;
  const CGPoint begin =
      CGPointMake((across.shownBegin - across.first) / samplesAcross, (down.shownBegin - down.first) / samplesDown);
  // What begins at the part's corner is asked to come to (0, 0), even where that corner lies outside the picture.
  const CGPoint corner = CGPointMake(part.origin.x - across.first / samplesAcross, part.origin.y - down.first / samplesDown);
  layer.picture = partOf(layer.picture, across, down);
  layer.displaySize = CGSizeMake(across.length() / samplesAcross, down.length() / samplesDown);
  layer.transform = CGAffineTransformConcat(CGAffineTransformMake(1, 0, 0, 1, -corner.x, -corner.y), layer.transform);
  if (!across.isExact() || !down.isExact()) {
    layer.clip = CGRect{
        begin, CGSizeMake((across.shownEnd - across.shownBegin) / samplesAcross, (down.shownEnd - down.shownBegin) / samplesDown)};
  }
  return true;
}

bool sharesPixels(const Picture& one, const Picture& other) {
  return one.y.data == other.y.data && one.width == other.width && one.height == other.height;
}

}  // namespace

class CVFrameComposer::Drawing {
 public:
  explicit Drawing(const CVPixelBufferRef& model)
      : width_(static_cast<int>(CVPixelBufferGetWidth(model))),
        height_(static_cast<int>(CVPixelBufferGetHeight(model))),
        format_(CVPixelBufferGetPixelFormatType(model)),
        color_(colorOf(model)) {}

  /// In `drawn` a layer with a null picture where there is nothing to draw; false where memory has run out.
  bool prepare(const CVFrameLayer& layer, PictureLayer& drawn) const {
    drawn = {};
    if (!layer || (layer.size && !(layer.size->width > 0 && layer.size->height > 0))) return true;
    drawn.picture =
        layer.image ? CGImageCopyPicture(layer.image, color_) : CVPixelBufferCopyPicture(layer.pixelBuffer, CVPictureAlpha::keep);
    if (!drawn.picture) return false;
    drawn.displaySize = layer.size.value_or(CGSizeMake(drawn.picture->width, drawn.picture->height));
    drawn.transform = layer.transform;
    drawn.opacity = layer.opacity;
    if (layer.part && !cut(drawn, *layer.part)) drawn.picture = nullptr;
    return true;
  }

  CVPixelBufferRef compose(const std::vector<CVFrameLayer>& layers) {
    std::vector<PictureLayer> drawn;
    for (const CVFrameLayer& layer : layers) {
      PictureLayer next;
      if (!prepare(layer, next)) return nullptr;
      if (next.picture) drawn.push_back(std::move(next));
    }
    const PictureRef frame = compositor_.compose(drawn, width_, height_, color_);
    if (!frame) return nullptr;
    for (const CVFrameLayer& layer : layers) {
      if (layer.pixelBuffer && !layer.image && CVPixelBufferGetPixelFormatType(layer.pixelBuffer) == format_ &&
          sharesPixels(*CVPixelBufferCopyPicture(layer.pixelBuffer, CVPictureAlpha::keep), *frame)) {
        return layer.pixelBuffer;
      }
    }
    return CVPixelBufferCreateWithPicture(frame, format_);
  }

  std::optional<CVFrameLayer> settle(const CVFrameLayer& layer) {
    PictureLayer drawn;
    if (!prepare(layer, drawn)) return std::nullopt;
    if (!drawn.picture) return CVFrameLayer{};
    const auto settled = rasterLayer(drawn, width_, height_, color_, {PicturePool::shared(), plans_});
    if (!settled) return std::nullopt;
    if (!settled->picture) return CVFrameLayer{};
    CVFrameLayer result;
    result.pixelBuffer = CVPixelBufferCreateWithPicture(settled->picture, kCVPixelFormatType_32BGRA);
    result.size = settled->displaySize;
    result.transform = settled->transform;
    result.opacity = settled->opacity;
    return result;
  }

 private:
  const int width_, height_;
  const OSType format_;
  const PictureColor color_;
  LayerCompositor compositor_;
  ScalePlanCache plans_;
};

CVFrameComposer::CVFrameComposer(const CVPixelBufferRef& model) : drawing_(std::make_unique<Drawing>(model)) {}
CVFrameComposer::~CVFrameComposer() = default;

std::shared_ptr<CVFrameComposer> CVFrameComposer::initWithModel(const CVPixelBufferRef& model) {
  return model ? std::shared_ptr<CVFrameComposer>(new CVFrameComposer(model)) : nullptr;
}

CVPixelBufferRef CVFrameComposer::compose(const std::vector<CVFrameLayer>& bottomToTop) const {
  return drawing_->compose(bottomToTop);
}

std::optional<CVFrameLayer> CVFrameComposer::settle(const CVFrameLayer& layer) const { return drawing_->settle(layer); }

}  // namespace vidloom
