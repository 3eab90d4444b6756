// The steps that an image-processing image is made by.
#pragma once

#include <array>
#include <variant>
#include <vector>

#include "vidloom/platform/coreimage/CIImage.h"

namespace vidloom {

struct NamedFilter;

/// Pixels: one of the three. The picture lies at (0, 0).
struct CISource {
  std::shared_ptr<CGImage> image;
  std::shared_ptr<CVPixelBuffer> pixelBuffer;
  std::shared_ptr<const Picture> picture;
};

struct CIColorFill {
  std::array<uint8_t, 4> premultipliedBGRA{};
};

struct CITransformed {
  CIImageRef input;
  CGAffineTransform matrix;
};

/// `rect` has no negative sides and lies within the input's extent.
struct CICropped {
  CIImageRef input;
  CGRect rect;
};

struct CIClamped {
  CIImageRef input;
};

struct CIComposite {
  CIImageRef top, bottom;
};

struct CIFiltered {
  CIImageRef input;
  const NamedFilter* filter = nullptr;
  std::vector<double> values;  ///< of all of the filter's parameters
};

/// One step and, through its inputs, those before it. Immutable.
class CIRecipe {
 public:
  using Step = std::variant<std::monostate, CISource, CIColorFill, CITransformed, CICropped, CIClamped, CIComposite, CIFiltered>;

  explicit CIRecipe(Step step) : step_(std::move(step)) {}
  static CIImageRef image(Step step, const CGRect& extent);
  static const std::shared_ptr<const CIRecipe>& of(const CIImage& image) { return image.recipe_; }
  static CIImageRef filtered(const CIImageRef& input, const NamedFilter& filter, std::vector<double> values);

  const Step& step() const { return step_; }

 private:
  const Step step_;
};

}  // namespace vidloom
