// Image-processing images as shared handles.
#pragma once

#include <memory>

namespace vidloom {

class CIImage;
using CIImageRef = std::shared_ptr<CIImage>;

}  // namespace vidloom
