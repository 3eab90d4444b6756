// Pixel buffers: pictures in the formats that hosts see.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

struct Picture;
class CVPixelBuffer;
/// A shared handle: keeping a copy is the retain, dropping it the release.
using CVPixelBufferRef = std::shared_ptr<CVPixelBuffer>;
using CVReturn = int32_t;
using CVOptionFlags = uint64_t;
using OSType = uint32_t;

inline constexpr CVReturn kCVReturnSuccess = 0;
inline constexpr CVReturn kCVReturnError = -6660;
inline constexpr CVReturn kCVReturnInvalidArgument = -6661;
inline constexpr CVReturn kCVReturnAllocationFailed = -6662;
inline constexpr CVReturn kCVReturnUnsupported = -6663;
inline constexpr CVReturn kCVReturnInvalidPixelFormat = -6680;
inline constexpr CVReturn kCVReturnInvalidSize = -6681;
inline constexpr CVReturn kCVReturnInvalidPixelBufferAttributes = -6682;
inline constexpr CVReturn kCVReturnPoolAllocationFailed = -6690;

inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarFullRange = 0x34323066;   ///< '420f'
inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange = 0x34323076;  ///< '420v'
inline constexpr OSType kCVPixelFormatType_32BGRA = 0x42475241;                        ///< 'BGRA'

inline const std::string kCVPixelBufferPixelFormatTypeKey = "PixelFormatType";
inline const std::string kCVPixelBufferWidthKey = "Width";
inline const std::string kCVPixelBufferHeightKey = "Height";
inline const std::string kCVPixelBufferMetalCompatibilityKey = "MetalCompatibility";
inline const std::string kCVPixelBufferOpenGLCompatibilityKey = "OpenGLCompatibility";
inline const std::string kCVPixelBufferOpenGLESCompatibilityKey = "OpenGLESCompatibility";
inline const std::string kCVPixelBufferIOSurfacePropertiesKey = "IOSurfaceProperties";
// Attachments: how the pixels are to be read, with the values of AVVideoColorPrimaries_* and so on.
inline const std::string kCVImageBufferColorPrimariesKey = "CVImageBufferColorPrimaries";
inline const std::string kCVImageBufferTransferFunctionKey = "CVImageBufferTransferFunction";
inline const std::string kCVImageBufferYCbCrMatrixKey = "CVImageBufferYCbCrMatrix";

inline constexpr CVOptionFlags kCVPixelBufferLock_ReadOnly = 1;

/// Makes a buffer with cleared memory in *pixelBufferOut. Formats: '420f', '420v', 'BGRA'. Attributes are kept and readable; they
/// do not change the layout. A side of zero gives kCVReturnInvalidArgument, one above 32768 kCVReturnInvalidSize, other formats
/// kCVReturnInvalidPixelFormat; *pixelBufferOut is then null.
CVReturn CVPixelBufferCreate(size_t width, size_t height, OSType pixelFormatType, const NSDictionary& pixelBufferAttributes,
                             CVPixelBufferRef* pixelBufferOut);

/// The address of the pixels is given only between a lock and its unlock; outside it is null. Locks nest; unlock with the same
/// flags, anything else gives kCVReturnInvalidArgument. A lock that is not read-only announces that the pixels may change.
/// kCVReturnAllocationFailed where memory has run out.
CVReturn CVPixelBufferLockBaseAddress(const CVPixelBufferRef& pixelBuffer, CVOptionFlags lockFlags);
CVReturn CVPixelBufferUnlockBaseAddress(const CVPixelBufferRef& pixelBuffer, CVOptionFlags unlockFlags);

size_t CVPixelBufferGetWidth(const CVPixelBufferRef& pixelBuffer);
size_t CVPixelBufferGetHeight(const CVPixelBufferRef& pixelBuffer);
OSType CVPixelBufferGetPixelFormatType(const CVPixelBufferRef& pixelBuffer);
bool CVPixelBufferIsPlanar(const CVPixelBufferRef& pixelBuffer);
size_t CVPixelBufferGetPlaneCount(const CVPixelBufferRef& pixelBuffer);
/// Of a non-planar buffer; for a planar one those of plane 0.
void* CVPixelBufferGetBaseAddress(const CVPixelBufferRef& pixelBuffer);
size_t CVPixelBufferGetBytesPerRow(const CVPixelBufferRef& pixelBuffer);
/// Null and 0 for a buffer that is not planar or has no such plane.
void* CVPixelBufferGetBaseAddressOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex);
size_t CVPixelBufferGetBytesPerRowOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex);
size_t CVPixelBufferGetWidthOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex);
size_t CVPixelBufferGetHeightOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex);
const NSDictionary& CVPixelBufferGetAttributes(const CVPixelBufferRef& pixelBuffer);
void CVBufferSetAttachment(const CVPixelBufferRef& pixelBuffer, const std::string& key, const std::string& value);
/// Empty where there is none.
std::string CVBufferGetAttachment(const CVPixelBufferRef& pixelBuffer, const std::string& key);

/// A buffer of that format that stands for a picture of the engine: the pixels are only written out in that format when
/// somebody locks the buffer. Null for a format other than the three above.
CVPixelBufferRef CVPixelBufferCreateWithPicture(std::shared_ptr<const Picture> picture, OSType pixelFormatType);
/// What becomes of the alpha of a 'BGRA' buffer, whose colours are taken as premultiplied.
enum class CVPictureAlpha : uint8_t {
  overBlack,  ///< the picture is opaque, as it looks over black
  keep        ///< a picture with alpha, unless every pixel is opaque
};

/// The buffer's content as a picture: the very one that it was made with as long as nobody could have changed the pixels (then
/// nothing is copied), else a picture converted from the pixels as they are now, limited range in the matrix of the attachments
/// (none: 601 up to 576 lines and 720 columns, 709 above). Null only for a null buffer or where memory has run out. Safe against
/// other readers on any thread.
std::shared_ptr<const Picture> CVPixelBufferCopyPicture(const CVPixelBufferRef& pixelBuffer,
                                                        CVPictureAlpha alpha = CVPictureAlpha::overBlack);

}  // namespace vidloom
