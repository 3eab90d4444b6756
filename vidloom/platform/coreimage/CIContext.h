// Renders image-processing images.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

class CIContext;
using CIContextRef = std::shared_ptr<CIContext>;

/// Works recipes out. Colours are blended, scaled and filtered as they are encoded (values of sRGB or of the video, not in linear
/// light), multiplied by alpha, with 8 bits a channel; nothing is converted between primaries or transfer curves. A recipe of
/// nothing but opaque or transparent pictures, transforms and composites that goes into an opaque picture is drawn by the same
/// kernels, to the same codes, as layers of a video composition. Keeps memory and filters that it can use again. Any thread;
/// concurrent calls run side by side.
class CIContext {
 public:
  static CIContextRef context();
  ~CIContext();
  CIContext(const CIContext&) = delete;
  CIContext& operator=(const CIContext&) = delete;

  // Failures are errors of AVFoundationErrorDomain: nothing to draw on, a rectangle that is infinite or larger than 32768 on a
  // side, no memory, or a filter that did not run.

  /// Draws the part of the image at `bounds` (rounded outwards to whole pixels; the buffer's size from (0, 0) on unless given) into
  /// all of the buffer, its bottom left at the buffer's. Where there is no image, 'BGRA' becomes transparent and a planar buffer
  /// black. 'BGRA' is written premultiplied; planar formats in the matrix of the buffer's attachments (none: by size, as
  /// CVPixelBufferCopyPicture), as seen over black.
  [[nodiscard]] bool render(const CIImageRef& image, const CVPixelBufferRef& toCVPixelBuffer,
                            std::optional<NSError>* error = nullptr);
  [[nodiscard]] bool render(const CIImageRef& image, const CVPixelBufferRef& toCVPixelBuffer, const CGRect& bounds,
                            std::optional<NSError>* error);
  /// The part of the image at that rectangle as a bitmap: premultiplied, or without alpha where every pixel is opaque.
  [[nodiscard]] CGImageRef createCGImage(const CIImageRef& image, const CGRect& fromRect, std::optional<NSError>* error = nullptr);
  /// The part of the image at that rectangle as a picture over black, or (`keepsAlpha`) with its alpha unless it is opaque. A
  /// picture that is not to be changed comes back itself.
  [[nodiscard]] std::shared_ptr<const Picture> createPicture(const CIImageRef& image, const CGRect& fromRect,
                                                             const PictureColor& color, bool keepsAlpha,
                                                             std::optional<NSError>* error = nullptr);
  /// Writes the image over its extent: see CGImageWritePNG.
  [[nodiscard]] bool writePNGRepresentationOfImage(const CIImageRef& image, const std::filesystem::path& toURL,
                                                   std::optional<NSError>* error);

 private:
  CIContext();
  class Renderer;
  std::unique_ptr<Renderer> renderer_;
};

}  // namespace vidloom
