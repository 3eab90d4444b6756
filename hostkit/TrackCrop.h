// What a crop means.
#pragma once

#include <optional>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {

/// The rectangle that a crop leaves of the upright picture of that size, in pixels from its top left; nullopt where it leaves the
/// picture whole. `percent` counts in fractions of the picture, 0 to 1, and is what counts where it has an area; else `absolute`
/// counts, in pixels of the picture, or, where `box` has an area, in units of which the box is as large as the picture.
std::optional<CGRect> croppedRect(const LUMCropData& crop, const CGSize& upright);

/// The size of a stored picture once `preferred` has put it upright.
CGSize uprightSize(const CGSize& stored, const CGAffineTransform& preferred);

/// What is shown of a stored picture, and the way of what is shown, from its own top left, to the output.
struct PicturePart {
  std::optional<CGRect> part;  ///< of the stored picture; all of it unless given
  CGAffineTransform transform;
};

/// Crop, then transform. What is left of the upright picture takes the upright picture's place: it begins at the top left where
/// that began. It is turned by `angle` degrees clockwise about its middle, then mapped by the crop's own `transform` (the all-zero
/// one counts as none); then goes on as the whole picture would by `transform`, which is the track's and takes the stored picture
/// to the output.
PicturePart partOfPicture(const LUMCropData* crop, const CGSize& stored, const CGAffineTransform& preferred,
                          const CGAffineTransform& transform);

}  // namespace vidloom
