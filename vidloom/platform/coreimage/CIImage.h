// Image-processing images: recipes that are worked out when a CIContext renders them.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

struct Picture;
class CGImage;
class CVPixelBuffer;
class CIImage;
class CIRecipe;
using CIImageRef = std::shared_ptr<CIImage>;

/// A recipe and the rectangle in which it is not empty. Coordinates have their origin at the bottom left and y up, one unit a
/// pixel; pixel (0, 0) of a bitmap is its bottom left one. Immutable, cheap to make, safe to share between threads. Operations
/// leave the image itself as it is.
class CIImage : public std::enable_shared_from_this<CIImage> {
 public:
  /// The extent is (0, 0, width, height). Null for null. A pixel buffer must not be written to any more.
  static CIImageRef imageWithCGImage(const std::shared_ptr<CGImage>& image);
  static CIImageRef imageWithCVPixelBuffer(const std::shared_ptr<CVPixelBuffer>& pixelBuffer);
  static CIImageRef imageWithPicture(const std::shared_ptr<const Picture>& picture);
  /// The picture in an image file, read at once: see CGImageCreateWithContentsOfURL for files and errors.
  [[nodiscard]] static CIImageRef imageWithContentsOfURL(const std::filesystem::path& url, std::optional<NSError>* error);
  /// One colour everywhere: an infinite extent. Components 0..1, not multiplied by alpha.
  static CIImageRef imageWithColor(double red, double green, double blue, double alpha);
  /// Nothing: the extent is CGRectNull.
  static CIImageRef emptyImage();

  ~CIImage();

  /// CGRectNull where there is nothing, CGRectInfinite where there is no end.
  CGRect extent() const { return extent_; }

  /// The extent becomes the smallest rectangle that holds the transformed one. Edges that do not fall between pixels are
  /// antialiased. A transform without an inverse leaves nothing.
  CIImageRef imageByApplyingTransform(const CGAffineTransform& matrix);
  /// What lies within the rectangle, at its place.
  CIImageRef imageByCroppingToRect(const CGRect& rect);
  /// The edge pixels go on for ever: keeps a blur from fading towards the edges (crop afterwards).
  CIImageRef imageByClampingToExtent();
  /// This image over `dest`; null counts as nothing.
  CIImageRef imageByCompositingOverImage(const CIImageRef& dest);
  /// The filter of that name (see CIFilter) with those values; the others are its defaults. Null with an error that names filter
  /// and parameter where either is not known or a value is no number or out of range.
  [[nodiscard]] CIImageRef imageByApplyingFilter(const std::string& filterName, const NSDictionary& parameters,
                                                 std::optional<NSError>* error = nullptr);

 private:
  friend class CIRecipe;
  CIImage(std::shared_ptr<const CIRecipe> recipe, const CGRect& extent);

  const std::shared_ptr<const CIRecipe> recipe_;
  const CGRect extent_;
};

}  // namespace vidloom
