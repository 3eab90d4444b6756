#include "hostkit/SvgCanvas.h"

#include <array>

#include "hostkit/PlotText.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

std::string number(double value) { return plotNumber(value, 2); }

std::string paint(uint32_t colorRGBA) {
  std::string result = NSStringWithFormat(" fill=\"#%06x\"", colorRGBA >> 8);
  const uint32_t alpha = colorRGBA & 0xffU;
  if (alpha != 0xff) result += " fill-opacity=\"" + plotNumber(alpha / 255.0, 3) + "\"";
  return result;
}

}  // namespace

SvgCanvas::SvgCanvas(int width, int height) {
  const std::string w = std::to_string(width), h = std::to_string(height);
  body_ = R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + w + "\" height=\"" + h + "\" viewBox=\"0 0 " + w + " " + h +
          R"(" font-family="Liberation Sans, Arial, Helvetica, sans-serif">
<rect width="100%" height="100%" fill="#ffffff"/>
)";
}

void SvgCanvas::fill(const CGRect& area, uint32_t colorRGBA) {
  body_ += "<rect x=\"" + number(area.origin.x) + "\" y=\"" + number(area.origin.y) + "\" width=\"" + number(area.size.width) +
           "\" height=\"" + number(area.size.height) + "\"" + paint(colorRGBA) + "/>\n";
}

/// An outline for each run of drawn columns: along the tops, back along the bottoms.
void SvgCanvas::band(double left, std::span<const PlotColumn> columns, uint32_t colorRGBA) {
  std::string path;
  const auto add = [&path](char command, double value) { (path += command) += number(value); };
  for (size_t begin = 0; begin < columns.size();) {
    size_t end = begin;
    while (end < columns.size() && columns[end].isDrawn) ++end;
    if (end > begin) {
      add('M', left + static_cast<double>(begin));
      add(' ', columns[begin].top);
      path += "h1";
      for (size_t i = begin + 1; i < end; ++i) {
        add('V', columns[i].top);
        path += "h1";
      }
      for (size_t i = end; i-- > begin;) {
        add('V', columns[i].bottom);
        path += "h-1";
      }
      path += 'z';
    }
    begin = end + 1;
  }
  if (!path.empty()) body_ += "<path d=\"" + path + "\"" + paint(colorRGBA) + "/>\n";
}

void SvgCanvas::text(const std::string& text, const CGPoint& point, PlotAnchor anchor, double sizePixels, bool isBold) {
  constexpr std::array kAnchors{"", " text-anchor=\"middle\"", " text-anchor=\"end\""};
  body_ += "<text x=\"" + number(point.x) + "\" y=\"" + number(point.y) + "\" font-size=\"" + number(sizePixels) + "\"" +
           kAnchors.at(static_cast<size_t>(anchor)) + (isBold ? " font-weight=\"bold\"" : "") + " fill=\"#222222\">" +
           xmlText(text) + "</text>\n";
}

}  // namespace vidloom
