#include "vidloom/platform/coregraphics/CGColorSpace.h"

#include <map>

namespace vidloom {

class CGColorSpace {
 public:
  explicit CGColorSpace(CGColorSpaceModel model, std::string name = {}) : model_(model), name_(std::move(name)) {}

  CGColorSpaceModel model() const { return model_; }
  const std::string& name() const { return name_; }

 private:
  const CGColorSpaceModel model_;
  const std::string name_;  ///< empty: none
};

CGColorSpaceRef CGColorSpaceCreateWithName(const std::string& name) {
  static const std::map<std::string, CGColorSpaceModel> models{
      {kCGColorSpaceSRGB, kCGColorSpaceModelRGB},         {kCGColorSpaceDisplayP3, kCGColorSpaceModelRGB},
      {kCGColorSpaceAdobeRGB1998, kCGColorSpaceModelRGB}, {kCGColorSpaceITUR_709, kCGColorSpaceModelRGB},
      {kCGColorSpaceITUR_2020, kCGColorSpaceModelRGB},    {kCGColorSpaceLinearSRGB, kCGColorSpaceModelRGB},
      {kCGColorSpaceGenericCMYK, kCGColorSpaceModelCMYK}, {kCGColorSpaceGenericGrayGamma2_2, kCGColorSpaceModelMonochrome}};
  const auto found = models.find(name);
  return found == models.end() ? nullptr : std::make_shared<CGColorSpace>(found->second, name);
}

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() { return std::make_shared<CGColorSpace>(kCGColorSpaceModelRGB); }

CGColorSpaceRef CGColorSpaceCreateDeviceGray() { return std::make_shared<CGColorSpace>(kCGColorSpaceModelMonochrome); }

CGColorSpaceRef CGColorSpaceCreateIndexed(const CGColorSpaceRef& baseSpace) {
  return baseSpace ? std::make_shared<CGColorSpace>(kCGColorSpaceModelIndexed) : nullptr;
}

CGColorSpaceModel CGColorSpaceGetModel(const CGColorSpaceRef& space) { return space ? space->model() : kCGColorSpaceModelUnknown; }

std::optional<std::string> CGColorSpaceCopyName(const CGColorSpaceRef& space) {
  if (!space || space->name().empty()) return std::nullopt;
  return space->name();
}

}  // namespace vidloom
