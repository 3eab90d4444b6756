#include "vidloom/platform/coregraphics/CGColorSpace.h"

#include <map>

namespace vidloom {

class CGColorSpace {
 public:
  CGColorSpace(CGColorSpaceModel model, std::optional<std::string> name) : model_(model), name_(std::move(name)) {}

  CGColorSpaceModel model() const { return model_; }
  const std::optional<std::string>& name() const { return name_; }

 private:
  const CGColorSpaceModel model_;
  const std::optional<std::string> name_;
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

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() { return std::make_shared<CGColorSpace>(kCGColorSpaceModelRGB, std::nullopt); }

CGColorSpaceRef CGColorSpaceCreateDeviceGray() {
  return std::make_shared<CGColorSpace>(kCGColorSpaceModelMonochrome, std::nullopt);
}

CGColorSpaceRef CGColorSpaceCreateIndexed(const CGColorSpaceRef& baseSpace) {
  return baseSpace ? std::make_shared<CGColorSpace>(kCGColorSpaceModelIndexed, std::nullopt) : nullptr;
}

CGColorSpaceModel CGColorSpaceGetModel(const CGColorSpaceRef& space) { return space ? space->model() : kCGColorSpaceModelUnknown; }

std::optional<std::string> CGColorSpaceCopyName(const CGColorSpaceRef& space) { return space ? space->name() : std::nullopt; }

}  // namespace vidloom
