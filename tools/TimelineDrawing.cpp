#include "tools/TimelineDrawing.h"

#include <algorithm>
#include <cmath>

#include "hostkit/PlotText.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

constexpr double kLeft = 90, kTop = 20, kRowGap = 10, kBoxHeight = 44, kSpeedHeight = 70, kWidth = 1200, kAxisHeight = 40;
constexpr double kCharacterWidth = 6.7;  // of the 11 px font, on the safe side

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

/// The neighbouring segments of one track.
struct Run {
  const LayoutSegment* first = nullptr;
  const LayoutSegment* last = nullptr;

  double begin() const { return startOf(first->target); }
  double end() const { return endOf(last->target); }
};

std::vector<Run> runsOf(const LayoutRow& row) {
  std::vector<Run> runs;
  for (const LayoutSegment& segment : row.segments) {
    if (segment.track == nullptr) continue;
    const bool goesOn = !runs.empty() && runs.back().last + 1 == &segment && runs.back().last->track == segment.track;
    if (goesOn) {
      runs.back().last = &segment;
    } else {
      runs.push_back({&segment, &segment});
    }
  }
  return runs;
}

bool isScaled(const LayoutSegment& segment) {
  return segment.track != nullptr && CMTimeCompare(segment.source.duration, segment.target.duration) != 0;
}

/// Zero for segments without a length.
double speedOf(const LayoutSegment& segment) {
  const double seconds = CMTimeGetSeconds(segment.target.duration);
  return seconds > 0 ? CMTimeGetSeconds(segment.source.duration) / seconds : 0;
}

class Drawing {
 public:
  Drawing(const std::vector<LayoutRow>& rows, const std::map<uint64_t, std::string>& names) : rows_(rows), names_(names) {
    for (const LayoutRow& row : rows) {
      if (!row.segments.empty()) wholeSeconds_ = std::max(wholeSeconds_, endOf(row.segments.back().target));
      for (const LayoutSegment& segment : row.segments) {
        if (!isScaled(segment) || speedOf(segment) <= 0) continue;
        slowest_ = std::min(slowest_, speedOf(segment));
        fastest_ = std::max(fastest_, speedOf(segment));
      }
    }
  }

  std::string text() {
    double top = kTop;
    for (const LayoutRow& row : rows_) {
      drawRow(row, top);
      top += heightOf(row) + kRowGap;
    }
    if (wholeSeconds_ > 0) drawAxis(top);
    return NSStringWithFormat(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" height=\"%g\" font-family=\"sans-serif\" "
               "font-size=\"11\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"#ffffff\"/>\n",
               kLeft + kWidth + 30, top + kAxisHeight) +
           out_ + "</svg>\n";
  }

 private:
  static double heightOf(const LayoutRow& row) {
    const bool hasSpeeds = std::any_of(row.segments.begin(), row.segments.end(), isScaled);
    return kBoxHeight + (hasSpeeds ? kSpeedHeight : 0);
  }

  double x(double seconds) const { return kLeft + (wholeSeconds_ > 0 ? seconds / wholeSeconds_ * kWidth : 0); }

  void drawRow(const LayoutRow& row, double top) {
    const double height = heightOf(row);
    out_ += NSStringWithFormat("<text x=\"8\" y=\"%g\" font-weight=\"bold\">%s %d</text>\n", top + kBoxHeight / 2 + 4,
                               row.isVideo ? "video" : "audio", row.number);
    out_ +=
        NSStringWithFormat("<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"#f2f2f2\"/>\n", kLeft, top, kWidth, height);
    for (const Run& run : runsOf(row)) {
      drawRun(row, run, top, height);
      if (std::any_of(run.first, run.last + 1, isScaled)) drawSpeeds(run, top + kBoxHeight);
    }
  }

  void drawRun(const LayoutRow& row, const Run& run, double top, double height) {
    const double left = x(run.begin());
    const double width = x(run.end()) - left;
    const uint64_t id = run.first->track->objectId();
    const auto found = names_.find(id);
    const std::string name = std::to_string(id) + (found != names_.end() ? "  " + found->second : "");
    const std::string target = secondsText(run.begin()) + " \u2013 " + secondsText(run.end()) + " s";
    const std::string source =
        "of " + secondsText(startOf(run.first->source)) + " \u2013 " + secondsText(endOf(run.last->source)) + " s";
    // Colours by the golden angle: neighbouring ids look different.
    const int hue = static_cast<int>(std::fmod(static_cast<double>(id) * 137.5, 360));
    out_ += NSStringWithFormat("<g><title>%s: %s, %s</title>\n", xmlText(name).c_str(), target.c_str(), source.c_str());
    out_ += NSStringWithFormat(
        "<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"hsl(%d, 60%%, %d%%)\" stroke=\"#444444\" "
        "stroke-width=\"0.5\"/>\n",
        left, top, width, height, hue, row.isVideo ? 78 : 88);
    double baseline = top + 13;
    for (const std::string& line : {name, target, source}) {
      const std::string label = xmlText(shortened(line, width - 6));
      if (!label.empty()) out_ += NSStringWithFormat("<text x=\"%g\" y=\"%g\">%s</text>\n", left + 4, baseline, label.c_str());
      baseline += 13;
    }
    out_ += "</g>\n";
  }

  /// Speeds as heights, a doubling being as high everywhere, between a border for each segment.
  void drawSpeeds(const Run& run, double top) {
    constexpr double kMargin = 14;
    const double logSlowest = std::log2(slowest_), logRange = std::log2(fastest_) - logSlowest;
    const auto heightOfSpeed = [&](double speed) {
      const double share = speed > 0 ? (std::log2(speed) - logSlowest) / logRange : 0;
      return top + kSpeedHeight - kMargin - share * (kSpeedHeight - 2 * kMargin);
    };
    std::string steps, borders;
    for (const LayoutSegment* segment = run.first; segment <= run.last; ++segment) {
      const double left = x(startOf(segment->target)), y = heightOfSpeed(speedOf(*segment));
      steps += NSStringWithFormat("%s%g %g H%g ", steps.empty() ? "M" : "L", left, y, x(endOf(segment->target)));
      if (segment != run.first) borders += NSStringWithFormat("M%g %g v%g ", left, top + kSpeedHeight - 5, 5.0);
    }
    out_ += NSStringWithFormat("<path d=\"M%g %g H%g\" stroke=\"#888888\" stroke-dasharray=\"3 3\"/>\n", x(run.begin()),
                               heightOfSpeed(1), x(run.end()));
    out_ += "<path d=\"" + borders + "\" stroke=\"#444444\" stroke-width=\"0.5\"/>\n";
    out_ += "<path class=\"speed\" d=\"" + steps + "\" fill=\"none\" stroke=\"#c00000\" stroke-width=\"1.5\"/>\n";
    for (const LayoutSegment* segment : turningPointsOf(run)) drawSpeedLabel(*segment, heightOfSpeed(speedOf(*segment)));
  }

  /// The first and the last segment, the fastest and the slowest.
  static std::vector<const LayoutSegment*> turningPointsOf(const Run& run) {
    const auto [slowest, fastest] = std::minmax_element(
        run.first, run.last + 1, [](const LayoutSegment& a, const LayoutSegment& b) { return speedOf(a) < speedOf(b); });
    std::vector<const LayoutSegment*> points{run.first, slowest, fastest, run.last};
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end(),
                             [](const auto* a, const auto* b) { return std::fabs(speedOf(*a) - speedOf(*b)) < 0.005; }),
                 points.end());
    return points;
  }

  void drawSpeedLabel(const LayoutSegment& segment, double y) {
    out_ += NSStringWithFormat("<text x=\"%g\" y=\"%g\" fill=\"#c00000\">%.02fx</text>\n", x(startOf(segment.target)) + 2, y - 3,
                               speedOf(segment));
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
  double slowest_ = 0.5, fastest_ = 2;
  std::string out_;
};

}  // namespace

std::string drawingOf(const std::vector<LayoutRow>& rows, const std::map<uint64_t, std::string>& names) {
  return Drawing(rows, names).text();
}

}  // namespace vidloom
