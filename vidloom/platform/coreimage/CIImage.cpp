#include "vidloom/platform/coreimage/CIImage.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/coreimage/CIFilter.h"
#include "vidloom/platform/coreimage/CIRecipe.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/ffmpeg/NamedFilters.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

namespace {

CGRect extentOf(size_t width, size_t height) { return CGRectMake(0, 0, static_cast<double>(width), static_cast<double>(height)); }

uint8_t byteOf(double component) { return static_cast<uint8_t>(std::lround(255 * std::clamp(component, 0.0, 1.0))); }

bool hasInverse(const CGAffineTransform& matrix) {
  const double determinant = matrix.a * matrix.d - matrix.b * matrix.c;
  return std::isfinite(determinant) && determinant != 0 && std::isfinite(matrix.tx) && std::isfinite(matrix.ty);
}

}  // namespace

CIImageRef CIRecipe::image(Step step, const CGRect& extent) {
  return CIImageRef(new CIImage(std::make_shared<const CIRecipe>(std::move(step)), extent));
}

CIImageRef CIRecipe::filtered(const CIImageRef& input, const NamedFilter& filter, std::vector<double> values) {
  CGRect extent = input->extent();
  if (CGRectIsEmpty(extent)) return input;
  if (filter.kind == NamedFilter::Kind::area && !CGRectIsInfinite(extent)) {
    const double margin = filter.margin(values);
    extent = CGRectIntegral(extent);
    extent = CGRectMake(extent.origin.x - margin, extent.origin.y - margin, extent.size.width + 2 * margin,
                        extent.size.height + 2 * margin);
  }
  return image(CIFiltered{input, &filter, std::move(values)}, extent);
}

CIImage::CIImage(std::shared_ptr<const CIRecipe> recipe, const CGRect& extent) : recipe_(std::move(recipe)), extent_(extent) {}

CIImage::~CIImage() = default;

CIImageRef CIImage::imageWithCGImage(const CGImageRef& image) {
  if (!image) return nullptr;
  return CIRecipe::image(CISource{image, nullptr, nullptr}, extentOf(CGImageGetWidth(image), CGImageGetHeight(image)));
}

CIImageRef CIImage::imageWithCVPixelBuffer(const CVPixelBufferRef& pixelBuffer) {
  if (!pixelBuffer) return nullptr;
  const CGRect extent = extentOf(CVPixelBufferGetWidth(pixelBuffer), CVPixelBufferGetHeight(pixelBuffer));
  return CIRecipe::image(CISource{nullptr, pixelBuffer, nullptr}, extent);
}

CIImageRef CIImage::imageWithPicture(const PictureRef& picture) {
  if (!picture) return nullptr;
  return CIRecipe::image(CISource{nullptr, nullptr, picture}, CGRectMake(0, 0, picture->width, picture->height));
}

CIImageRef CIImage::imageWithContentsOfURL(const std::filesystem::path& url, std::optional<NSError>* error) {
  return imageWithCGImage(CGImageCreateWithContentsOfURL(url, error));
}

CIImageRef CIImage::imageWithColor(double red, double green, double blue, double alpha) {
  alpha = std::clamp(alpha, 0.0, 1.0);
  return CIRecipe::image(CIColorFill{{byteOf(blue * alpha), byteOf(green * alpha), byteOf(red * alpha), byteOf(alpha)}},
                         CGRectInfinite);
}

CIImageRef CIImage::emptyImage() { return CIRecipe::image({}, CGRectNull); }

CIImageRef CIImage::imageByApplyingTransform(const CGAffineTransform& matrix) {
  if (matrix == CGAffineTransformIdentity || CGRectIsEmpty(extent_)) return shared_from_this();
  if (!hasInverse(matrix)) return emptyImage();
  // One map is both faster and sharper than two.
  const auto* before = std::get_if<CITransformed>(&recipe_->step());
  CITransformed step{before ? before->input : shared_from_this(),
                     before ? CGAffineTransformConcat(before->matrix, matrix) : matrix};
  const CGRect extent = CGRectApplyAffineTransform(step.input->extent(), step.matrix);
  return CIRecipe::image(std::move(step), extent);
}

CIImageRef CIImage::imageByCroppingToRect(const CGRect& rect) {
  const CGRect left = CGRectIntersection(extent_, rect);
  if (CGRectIsEmpty(left)) return emptyImage();
  if (left == extent_) return shared_from_this();
  const auto* before = std::get_if<CICropped>(&recipe_->step());
  return CIRecipe::image(CICropped{before ? before->input : shared_from_this(), left}, left);
}

CIImageRef CIImage::imageByClampingToExtent() {
  if (CGRectIsEmpty(extent_) || CGRectIsInfinite(extent_)) return shared_from_this();
  return CIRecipe::image(CIClamped{shared_from_this()}, CGRectInfinite);
}

CIImageRef CIImage::imageByCompositingOverImage(const CIImageRef& dest) {
  if (!dest || CGRectIsEmpty(dest->extent())) return shared_from_this();
  if (CGRectIsEmpty(extent_)) return dest;
  return CIRecipe::image(CIComposite{shared_from_this(), dest}, CGRectUnion(extent_, dest->extent()));
}

CIImageRef CIImage::imageByApplyingFilter(const std::string& filterName, const NSDictionary& parameters,
                                          std::optional<NSError>* error) {
  const CIFilterRef filter = CIFilter::filterWithName(filterName, error);
  if (!filter) return nullptr;
  for (const auto& [key, value] : parameters) {
    if (!filter->setValue(value, key, error)) return nullptr;
  }
  filter->setInputImage(shared_from_this());
  return filter->outputImage();
}

}  // namespace vidloom
