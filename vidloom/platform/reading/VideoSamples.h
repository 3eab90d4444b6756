// Wraps pictures into samples.
#pragma once

#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// A sample that shows the buffer; null where it cannot be described.
CMSampleBufferRef videoSample(const CVPixelBufferRef& buffer, const CMTime& time, const CMTime& duration);
/// A sample that stands for the picture in that format, colours attached; the pixels are made when somebody asks for them.
CMSampleBufferRef videoSample(const PictureRef& picture, OSType pixelFormat, const CMTime& time, const CMTime& duration);

}  // namespace vidloom
