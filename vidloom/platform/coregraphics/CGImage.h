// Bitmap images as shared handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "vidloom/platform/coregraphics/CGColorSpace.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

struct Picture;
struct PictureColor;
class CGImage;
class CVPixelBuffer;
/// Keeping a copy is the retain, dropping it the release. The bitmap behind it never changes; any thread may read it.
using CGImageRef = std::shared_ptr<CGImage>;

/// Whether a bitmap has alpha, and whether its colours are multiplied by it. The bytes of our bitmaps are B, G, R, A whatever this
/// says of first and last.
enum CGImageAlphaInfo : uint32_t {
  kCGImageAlphaNone = 0,
  kCGImageAlphaPremultipliedLast = 1,
  kCGImageAlphaPremultipliedFirst = 2,
  kCGImageAlphaLast = 3,
  kCGImageAlphaFirst = 4,
  kCGImageAlphaNoneSkipLast = 5,
  kCGImageAlphaNoneSkipFirst = 6,
  kCGImageAlphaOnly = 7,  ///< no bitmap of ours is so
};

/// A bitmap of 4 bytes a pixel, B, G, R and alpha, top row first, 8 bits each; the fourth byte counts where alphaInfo says so. The
/// memory behind `bytes` must not change any more; it is kept, not copied. A null space is that of a device. Null where the size is
/// not positive or larger than 32768 on a side, rows are shorter than the width, or alphaInfo is kCGImageAlphaOnly.
CGImageRef CGImageCreate(size_t width, size_t height, size_t bytesPerRow, std::shared_ptr<const uint8_t> bytes,
                         CGImageAlphaInfo alphaInfo, CGColorSpaceRef space);
/// Reads a PNG, JPEG, WebP, GIF (the first frame) or TIFF file, told by its content. The picture stands upright: the orientation
/// that the file notes (EXIF) is applied. Alpha is straight (kCGImageAlphaFirst); a file without gives kCGImageAlphaNone. Colours
/// are kept as they are stored, whatever profile the file carries; the space says what that is: sRGB for a file that says so or
/// nothing, monochrome for grey ones, indexed for palettes, RGB without a name for another profile.
/// Null with an error of AVFoundationErrorDomain that names the file and the cause for anything else, for damaged or cut off files
/// and for pictures beyond MediaLimits. Nothing but the file is opened. Blocks; any thread.
[[nodiscard]] CGImageRef CGImageCreateWithContentsOfURL(const std::filesystem::path& url, std::optional<NSError>* error);
/// The pixels of the buffer as they are now. 'BGRA' is taken as premultiplied, and as opaque where every pixel is; other formats
/// give opaque bitmaps. Null for a null buffer or where memory has run out.
CGImageRef CGImageCreateWithPixelBuffer(const std::shared_ptr<CVPixelBuffer>& pixelBuffer);

// 0, null or kCGImageAlphaNone for a null image.
size_t CGImageGetWidth(const CGImageRef& image);
size_t CGImageGetHeight(const CGImageRef& image);
size_t CGImageGetBytesPerRow(const CGImageRef& image);
CGImageAlphaInfo CGImageGetAlphaInfo(const CGImageRef& image);
CGColorSpaceRef CGImageGetColorSpace(const CGImageRef& image);
/// Valid as long as the image.
const uint8_t* CGImageGetBytes(const CGImageRef& image);

/// The bitmap as a picture of that matrix and range, with an alpha plane only where a pixel is not opaque. sRGB values are taken
/// for video values as they are. Converts; but as long as somebody holds the picture of the call before, one of the same colour is
/// that one. Null for a null image or where memory has run out. Any thread.
std::shared_ptr<const Picture> CGImageCopyPicture(const CGImageRef& image, const PictureColor& color);

/// Writes a PNG file with 8 bits a channel, with alpha where the image has any, tagged as sRGB. At the path there is the whole file
/// or what was there before. False with an error that names the file and the cause.
[[nodiscard]] bool CGImageWritePNG(const CGImageRef& image, const std::filesystem::path& url, std::optional<NSError>* error);

}  // namespace vidloom
