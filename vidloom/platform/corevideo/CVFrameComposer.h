// Frames drawn from layers: what a host composes with.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

/// A picture and where it goes. The alpha of bitmaps is taken as they say, that of 'BGRA' buffers as premultiplied.
struct CVFrameLayer {
  CVPixelBufferRef pixelBuffer;  ///< the picture; with an image as well the image counts
  CGImageRef image;
  /// The size in whose units `part` and `transform` count; its own size in pixels unless given.
  std::optional<CGSize> size;
  /// What is shown of it; all of it unless given. Edges may lie between pixels.
  std::optional<CGRect> part;
  /// From what is shown, which begins at (0, 0) with y down, to pixels of the frame.
  CGAffineTransform transform = CGAffineTransformIdentity;
  double opacity = 1;  ///< 0..1

  /// Whether there is a picture at all.
  explicit operator bool() const { return pixelBuffer != nullptr || image != nullptr; }
};

/// Composes frames of one kind over black. Blending happens in the space of the frame's codes: Y'CbCr 4:2:0 with its transfer
/// function applied (gamma-encoded, not linear light), in the frame's own matrix, limited range; sRGB values of bitmaps are taken
/// for video values as they are. Colours are weighted by alpha before they are resampled, and the edges of scaled and turned layers
/// are antialiased. What comes out does not depend on the pixel format: other formats are made from these codes. Any thread;
/// concurrent calls run side by side.
class CVFrameComposer {
 public:
  /// Frames of the size, pixel format and colours of that buffer. Null for a null one.
  static std::shared_ptr<CVFrameComposer> initWithModel(const CVPixelBufferRef& model);
  ~CVFrameComposer();

  /// The layers over each other, the first one at the bottom; those without a picture are left out. The frame must not be changed:
  /// a single opaque buffer that fills the frame as it is comes back itself, and equal frames may share their pixels. Null where
  /// memory has run out.
  CVPixelBufferRef compose(const std::vector<CVFrameLayer>& bottomToTop) const;

  /// The same layer, decoded, scaled and in the frame's colours, for one that stays as it is from frame to frame. Without a picture
  /// where nothing of it can be seen; nullopt where memory has run out.
  std::optional<CVFrameLayer> settle(const CVFrameLayer& layer) const;

 private:
  class Drawing;
  explicit CVFrameComposer(const CVPixelBufferRef& model);
  std::unique_ptr<Drawing> drawing_;
};

}  // namespace vidloom
