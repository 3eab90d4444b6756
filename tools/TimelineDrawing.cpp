#include "tools/TimelineDrawing.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

constexpr double kLeft = 90, kTop = 20, kRowHeight = 54, kBoxHeight = 44, kWidth = 1200, kAxisHeight = 40;
constexpr double kCharacterWidth = 6.7;  // of the 11 px font, on the safe side

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '&') {
      result += "&amp;";
    } else if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else if (static_cast<unsigned char>(c) >= ' ') {
      result += c;
    }
  }
  return result;
}

/// Cut to the room, never inside a character.
std::string shortened(const std::string& text, double room) {
  const auto fitting = static_cast<size_t>(std::max(0.0, room / kCharacterWidth));
  if (text.size() <= fitting) return text;
  size_t length = fitting > 1 ? fitting - 1 : 0;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) --length;
  return length > 0 ? text.substr(0, length) + "\u2026" : "";
}

std::string secondsText(double seconds) {
  std::string text = NSStringWithFormat("%.3f", seconds);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

double startOf(const CMTimeRange& range) { return CMTimeGetSeconds(range.start); }
double endOf(const CMTimeRange& range) { return CMTimeGetSeconds(CMTimeRangeGetEnd(range)); }

/// 1, 2 or 5 times a power of ten, so that about ten steps make the whole.
double axisStep(double wholeSeconds) {
  const double rough = wholeSeconds / 10;
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= rough) return factor * power;
  }
  return 10 * power;
}

class Drawing {
 public:
  Drawing(const std::vector<LayoutRow>& rows, const std::map<uint64_t, std::string>& names) : rows_(rows), names_(names) {
    for (const LayoutRow& row : rows) {
      if (!row.segments.empty()) wholeSeconds_ = std::max(wholeSeconds_, endOf(row.segments.back().target));
    }
  }

  std::string text() {
    const double height = kTop + kRowHeight * static_cast<double>(rows_.size()) + kAxisHeight;
    out_ = NSStringWithFormat(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" height=\"%g\" font-family=\"sans-serif\" font-size=\"11\">\n"
        "<rect width=\"100%%\" height=\"100%%\" fill=\"#ffffff\"/>\n",
        kLeft + kWidth + 30, height);
    for (size_t i = 0; i < rows_.size(); ++i) drawRow(rows_[i], kTop + kRowHeight * static_cast<double>(i));
    if (wholeSeconds_ > 0) drawAxis(kTop + kRowHeight * static_cast<double>(rows_.size()));
    return out_ + "</svg>\n";
  }

 private:
  double x(double seconds) const { return kLeft + (wholeSeconds_ > 0 ? seconds / wholeSeconds_ * kWidth : 0); }

  void drawRow(const LayoutRow& row, double top) {
    out_ += NSStringWithFormat("<text x=\"8\" y=\"%g\" font-weight=\"bold\">%s %d</text>\n", top + kBoxHeight / 2 + 4,
                               row.isVideo ? "video" : "audio", row.number);
    out_ += NSStringWithFormat("<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"#f2f2f2\"/>\n", kLeft, top, kWidth,
                               kBoxHeight);
    for (const LayoutSegment& segment : row.segments) {
      if (segment.track != nullptr) drawSegment(row, segment, top);
    }
  }

  void drawSegment(const LayoutRow& row, const LayoutSegment& segment, double top) {
    const double left = x(startOf(segment.target));
    const double width = x(endOf(segment.target)) - left;
    const uint64_t id = segment.track->objectId();
    const auto found = names_.find(id);
    const std::string name = std::to_string(id) + (found != names_.end() ? "  " + found->second : "");
    const std::string target = secondsText(startOf(segment.target)) + " \u2013 " + secondsText(endOf(segment.target)) + " s";
    const std::string source =
        "of " + secondsText(startOf(segment.source)) + " \u2013 " + secondsText(endOf(segment.source)) + " s";
    // Colours by the golden angle: neighbouring ids look different.
    const int hue = static_cast<int>(std::fmod(static_cast<double>(id) * 137.5, 360));
    out_ += NSStringWithFormat("<g><title>%s: %s, %s</title>\n", escaped(name).c_str(), target.c_str(), source.c_str());
    out_ += NSStringWithFormat(
        "<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"hsl(%d, 60%%, %d%%)\" stroke=\"#444444\" "
        "stroke-width=\"0.5\"/>\n",
        left, top, width, kBoxHeight, hue, row.isVideo ? 78 : 88);
    double baseline = top + 13;
    for (const std::string& line : {name, target, source}) {
      const std::string label = escaped(shortened(line, width - 6));
      if (!label.empty()) out_ += NSStringWithFormat("<text x=\"%g\" y=\"%g\">%s</text>\n", left + 4, baseline, label.c_str());
      baseline += 13;
    }
    out_ += "</g>\n";
  }

  void drawAxis(double top) {
    out_ += NSStringWithFormat("<path d=\"M%g %g h%g\" stroke=\"#000000\"/>\n", kLeft, top, kWidth);
    const double step = axisStep(wholeSeconds_);
    for (int i = 0; i * step <= wholeSeconds_ * (1 + 1e-9); ++i) {
      const double at = x(i * step);
      out_ += NSStringWithFormat("<path d=\"M%g %g v6\" stroke=\"#000000\"/>\n", at, top);
      out_ += NSStringWithFormat("<text x=\"%g\" y=\"%g\" text-anchor=\"middle\">%s s</text>\n", at, top + 20,
                                 secondsText(i * step).c_str());
    }
  }

  const std::vector<LayoutRow>& rows_;
  const std::map<uint64_t, std::string>& names_;
  double wholeSeconds_ = 0;
  std::string out_;
};

}  // namespace

std::string drawingOf(const std::vector<LayoutRow>& rows, const std::map<uint64_t, std::string>& names) {
  return Drawing(rows, names).text();
}

}  // namespace vidloom
