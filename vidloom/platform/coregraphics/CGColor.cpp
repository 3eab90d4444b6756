#include "vidloom/platform/coregraphics/CGColor.h"

namespace vidloom {

class CGColor {
 public:
  explicit CGColor(const std::array<double, 4>& components) : components_(components) {}
  const std::array<double, 4>& components() const { return components_; }

 private:
  std::array<double, 4> components_;
};

CGColorRef CGColorCreateSRGB(double red, double green, double blue, double alpha) {
  return std::make_shared<const CGColor>(std::array{red, green, blue, alpha});
}

std::array<double, 4> CGColorGetComponents(const CGColorRef& color) {
  return color ? color->components() : std::array<double, 4>{};
}

}  // namespace vidloom
