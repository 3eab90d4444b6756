#pragma once

#include "hostkit/ProjectFile.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

/// Places a picture in the render size: `upright` (which maps the stored picture of size `stored` into the positive quadrant)
/// followed by the scaling and centring of `fit`. A picture without area is placed by `upright` alone.
CGAffineTransform transformOfFit(ProjectFit fit, const CGSize& stored, const CGAffineTransform& upright, const CGSize& renderSize);

}  // namespace vidloom
