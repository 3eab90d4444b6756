// Text as a bitmap.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom {

struct TextStyle {
  /// Family, style and size, as in "Sans Bold 64"; the size is the em's, in pixels. "Sans", and any family that the machine does
  /// not have, is the font that comes with the host kit; without a size it is 48.
  std::string font = "Sans 48";
  uint32_t colorRGBA = 0xffffffff;
  uint32_t backgroundRGBA = 0;  ///< behind all of the text's box
};

/// A text that was laid out, line by line from the left, breaking only where it says so.
struct TextPicture {
  CGImageRef image;  ///< premultiplied, sRGB
  /// Where the image lies, in pixels of the style, from the top left of the text's box. Larger than the box where glyphs stand out.
  CGRect frame;
};

/// Draws `scale` pixels of the image for a pixel of the style. Nullopt, with the cause in `problem`, where the font size is none,
/// the picture would be larger than 8192 pixels on a side, or memory has run out. Draws the same on every machine that has the
/// font. Any thread.
std::optional<TextPicture> pictureOfText(const std::string& text, const TextStyle& style, double scale, std::string& problem);

}  // namespace vidloom
