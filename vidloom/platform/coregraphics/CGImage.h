// Bitmap images as shared handles.
#pragma once

#include <memory>

namespace vidloom {

class CGImage;
/// Keeping a copy is the retain, dropping it the release.
using CGImageRef = std::shared_ptr<CGImage>;

}  // namespace vidloom
