// Which colours the frames of an output have.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// What the composition's colour properties say; each one that is not set is that of the sources where all of them agree, else
/// BT.709. Untagged sources of a macroblock's size are not asked: they stand for footage that is not there. Always limited range.
PictureColor outputColor(const AVMutableVideoComposition& composition,
                         const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks);

/// Attaches the published names of the colour to a buffer, where it has none of its own.
void attachColor(const CVPixelBufferRef& buffer, const PictureColor& color);
/// Whether the buffer's attachments name that colour's matrix.
bool hasMatrix(const CVPixelBufferRef& buffer, const PictureColor& color);

}  // namespace vidloom
