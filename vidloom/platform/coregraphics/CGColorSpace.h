// Colour spaces: what the colours of a bitmap are said to be.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vidloom {

class CGColorSpace;
using CGColorSpaceRef = std::shared_ptr<const CGColorSpace>;

enum CGColorSpaceModel : int32_t {
  kCGColorSpaceModelUnknown = -1,
  kCGColorSpaceModelMonochrome = 0,
  kCGColorSpaceModelRGB = 1,
  kCGColorSpaceModelCMYK = 2,
  kCGColorSpaceModelLab = 3,
  kCGColorSpaceModelDeviceN = 4,
  kCGColorSpaceModelIndexed = 5,
  kCGColorSpaceModelPattern = 6,
};

inline const std::string kCGColorSpaceSRGB = "kCGColorSpaceSRGB";
inline const std::string kCGColorSpaceDisplayP3 = "kCGColorSpaceDisplayP3";
inline const std::string kCGColorSpaceAdobeRGB1998 = "kCGColorSpaceAdobeRGB1998";
inline const std::string kCGColorSpaceITUR_709 = "kCGColorSpaceITUR_709";
inline const std::string kCGColorSpaceITUR_2020 = "kCGColorSpaceITUR_2020";
inline const std::string kCGColorSpaceLinearSRGB = "kCGColorSpaceLinearSRGB";
inline const std::string kCGColorSpaceGenericGrayGamma2_2 = "kCGColorSpaceGenericGrayGamma2_2";
inline const std::string kCGColorSpaceGenericCMYK = "kCGColorSpaceGenericCMYK";

/// The space of one of the names above; null for any other.
CGColorSpaceRef CGColorSpaceCreateWithName(const std::string& name);
/// Spaces without a name: colours as some device has them.
CGColorSpaceRef CGColorSpaceCreateDeviceRGB();
CGColorSpaceRef CGColorSpaceCreateDeviceGray();
/// The space of a palette whose entries lie in `baseSpace`. Null for a null base.
CGColorSpaceRef CGColorSpaceCreateIndexed(const CGColorSpaceRef& baseSpace);

/// kCGColorSpaceModelUnknown for null.
CGColorSpaceModel CGColorSpaceGetModel(const CGColorSpaceRef& space);
/// Nothing for null and for a space without a name.
std::optional<std::string> CGColorSpaceCopyName(const CGColorSpaceRef& space);

}  // namespace vidloom
