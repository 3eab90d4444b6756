// Makes pixel buffers of one kind whose memory is used again.
#pragma once

#include <memory>
#include <string>

#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

class CVPixelBufferPool;
using CVPixelBufferPoolRef = std::shared_ptr<CVPixelBufferPool>;

/// How much memory that no buffer uses the pool keeps (a number of buffers, 4 unless given).
inline const std::string kCVPixelBufferPoolMinimumBufferCountKey = "MinimumBufferCount";

/// The pixel buffer attributes give the format, the width and the height; the rest is handed on to every buffer. Status 0;
/// kCVReturnInvalidPixelBufferAttributes where one of the three is missing; else as CVPixelBufferCreate.
CVReturn CVPixelBufferPoolCreate(const NSDictionary& poolAttributes, const NSDictionary& pixelBufferAttributes,
                                 CVPixelBufferPoolRef* poolOut);
/// A buffer in the memory of one that nobody holds any more (its pixels are what they were), or in new, cleared memory. The buffer
/// may outlive the pool. kCVReturnPoolAllocationFailed where memory has run out. Any thread.
CVReturn CVPixelBufferPoolCreatePixelBuffer(const CVPixelBufferPoolRef& pool, CVPixelBufferRef* pixelBufferOut);
const NSDictionary& CVPixelBufferPoolGetPixelBufferAttributes(const CVPixelBufferPoolRef& pool);
/// Gives back the memory that no buffer uses.
void CVPixelBufferPoolFlush(const CVPixelBufferPoolRef& pool);

}  // namespace vidloom
