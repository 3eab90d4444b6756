// Colours as shared handles.
#pragma once

#include <array>
#include <memory>

namespace vidloom {

class CGColor;
/// Keeping a copy is the retain, dropping it the release. A colour never changes.
using CGColorRef = std::shared_ptr<const CGColor>;

/// A colour of the sRGB space, components from 0 to 1.
CGColorRef CGColorCreateSRGB(double red, double green, double blue, double alpha);
/// Red, green, blue and alpha; all zero for null.
std::array<double, 4> CGColorGetComponents(const CGColorRef& color);

}  // namespace vidloom
