#include "hostkit/PlotCanvas.h"

#include "hostkit/PlotText.h"
#include "hostkit/TextPicture.h"

namespace vidloom {

double PlotCanvas::widthOfText(const std::string& text, double sizePixels, bool isBold) {
  std::string problem;
  const auto picture = pictureOfText(readableText(text), {.font = plotFont(sizePixels, isBold)}, 1, problem);
  return picture ? picture->frame.size.width : 0;
}

std::string PlotCanvas::shortened(const std::string& text, double mostPixels, double sizePixels, bool isBold) {
  std::string whole = readableText(text);
  if (widthOfText(whole, sizePixels, isBold) <= mostPixels) return whole;
  size_t fitting = 0, tooLong = whole.size();
  const auto cut = [&whole](size_t length) {
    while (length > 0 && (static_cast<unsigned char>(whole[length]) & 0xC0U) == 0x80U) --length;
    return whole.substr(0, length) + "\u2026";
  };
  while (tooLong - fitting > 1) {
    const size_t middle = (fitting + tooLong) / 2;
    (widthOfText(cut(middle), sizePixels, isBold) <= mostPixels ? fitting : tooLong) = middle;
  }
  return cut(fitting);
}

}  // namespace vidloom
