#include "vidloom/speed/LUMScaleContext.h"

#include <cmath>

#include "vidloom/platform/coremedia/CMTimeRational.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

namespace {

constexpr CMTime kStep{1, 10, kCMTimeFlags_Valid, 0};
constexpr double kStepsPerSecond = 10;
constexpr double kMostSegments = 1e6;

/// How far `part` lies along `whole`, in the precision of a slider that counts percents.
float fractionOf(float part, float whole) { return static_cast<float>(double{part} * 100.0 / double{whole} / 100.0); }

/// The speed at a height in the box before it is rounded for display.
float speedAt(const CGRect& box, float y) {
  const double middle = CGRectGetMidY(box), height = y;
  if (middle <= height) {
    const float fraction = fractionOf(static_cast<float>(height - middle), static_cast<float>(CGRectGetMaxY(box) - middle));
    return static_cast<float>(1.0 - double{std::fma(fraction, 0.8f, 0.2f)} + double{0.2f});
  }
  const double top = CGRectGetMinY(box);
  const float fraction = fractionOf(static_cast<float>(height - top), static_cast<float>(middle - top));
  return std::fma(-fraction, 9.0f, 9.0f) + 1.0f;
}

/// What reading back "%.02f" gives. A float times 100 is exact in double precision, and no decimal of two places lies so near the
/// middle between two floats that rounding it to double first could tip it.
float roundedToHundredths(float speed) { return static_cast<float>(std::nearbyint(double{speed} * 100.0) / 100.0); }

double factorFor(double speed) { return 1.0 / double{static_cast<float>(speed)}; }

/// The content between two points.
struct Piece {
  CMTime start, stop, length;
  bool isNumeric() const { return detail::isNumber(start) && detail::isNumber(stop) && detail::isNumber(length); }
};

Piece pieceBetween(const LUMScalePoint& from, const LUMScalePoint& to, const CMTime& usable, const CMTime& leftOffset) {
  const CMTime begin = CMTimeMultiplyByFloat64(usable, double{from.x()}), end = CMTimeMultiplyByFloat64(usable, double{to.x()});
  return {CMTimeAdd(CMTimeAdd(kCMTimeZero, begin), leftOffset), CMTimeAdd(CMTimeAdd(kCMTimeZero, end), leftOffset),
          CMTimeSubtract(end, begin)};
}

/// What a run through the points collects.
struct Segments {
  std::vector<LUMScaleTime> times;
  CMTime cursor;

  void add(const CMTime& start, const CMTime& length, double speed) {
    const CMTime duration = CMTimeMultiplyByFloat64(length, factorFor(speed));
    times.emplace_back(duration, CMTimeRangeMake(start, length), cursor);
    cursor = CMTimeAdd(cursor, duration);
  }

  /// Cuts the piece into steps and what is left; the speed of each is that at its beginning, as a fraction of the piece.
  template <class SpeedAt>
  void addSteps(const Piece& piece, SpeedAt speedAtFraction) {
    const double seconds = CMTimeGetSeconds(piece.length);
    for (CMTime time = piece.start; CMTimeCompare(piece.stop, time) > 0;) {
      const CMTime next = CMTimeAdd(time, kStep);
      const bool advances = CMTimeCompare(next, time) > 0;  // not where times are too large to tell a step
      const bool isWholeStep = advances && CMTimeCompare(next, piece.stop) <= 0;
      const auto percent = static_cast<float>(CMTimeGetSeconds(CMTimeSubtract(time, piece.start)) * 100.0 / seconds);
      add(time, isWholeStep ? kStep : CMTimeSubtract(piece.stop, time), speedAtFraction(double{percent} / 100.0));
      time = isWholeStep ? next : piece.stop;
    }
  }
};

/// The steps between neighbouring points; points that go back or are no numbers take none.
double stepCount(const std::vector<std::shared_ptr<LUMScalePoint>>& points, const CMTime& usable) {
  double count = 0;
  for (size_t i = 0; i + 1 < points.size(); ++i) {
    const double length = (double{points[i + 1]->x()} - double{points[i]->x()}) * CMTimeGetSeconds(usable);
    if (std::isfinite(length) && length > 0) count += std::ceil(length * kStepsPerSecond);
  }
  return count;
}

void validate(CMTime& offset) {
  if (!CMTIME_IS_NUMERIC(offset) || std::isnan(CMTimeGetSeconds(offset))) offset = kCMTimeZero;
}

}  // namespace

std::shared_ptr<LUMScaleContext> LUMScaleContext::initWithBox(const CGRect& box, std::vector<std::shared_ptr<LUMScalePoint>> points,
                                                              std::vector<std::shared_ptr<PWBezier>> beziers,
                                                              const Offsets& offsets) {
  auto context = std::make_shared<LUMScaleContext>(LUMScaleContext());
  context->box_ = box;
  context->points_ = std::move(points);
  context->offsets_ = offsets;
  context->beziers_ = std::move(beziers);
  context->validateOffsets();
  return context;
}

std::shared_ptr<LUMScaleContext> LUMScaleContext::initWithLinearSpeed(double linearSpeed) {
  auto context = std::make_shared<LUMScaleContext>(LUMScaleContext());
  context->linearSpeed_ = linearSpeed;
  context->offsets_ = {kCMTimeZero, kCMTimeZero};
  context->validateOffsets();
  return context;
}

std::shared_ptr<LUMScaleContext> LUMScaleContext::copy() const {
  if (linearSpeed_) return initWithLinearSpeed(double{static_cast<float>(*linearSpeed_)});
  std::vector<std::shared_ptr<LUMScalePoint>> points;
  points.reserve(points_.size());
  for (const auto& point : points_) points.push_back(point->copy());
  return initWithBox(box_, std::move(points), beziers_, offsets_);
}

void LUMScaleContext::setOffsets(const Offsets& offsets) {
  offsets_ = offsets;
  validateOffsets();
}

void LUMScaleContext::validateOffsets() {
  validate(offsets_.rightOffset);
  validate(offsets_.leftOffset);
}

std::vector<LUMScaleTime> LUMScaleContext::generateTimesForTrack(const std::shared_ptr<const LUMTrack>& track) {
  const CMTime content = track ? track->internalDuration() : CMTime{};
  const CMTime usable = CMTimeSubtract(CMTimeSubtract(content, offsets_.leftOffset), offsets_.rightOffset);
  if (!linearSpeed_) return timesOfCurve(usable);
  std::vector<LUMScaleTime> times;
  times.emplace_back(CMTimeMultiplyByFloat64(usable, factorFor(*linearSpeed_)), CMTimeRangeMake(offsets_.leftOffset, content),
                     offsets_.leftOffset);
  return times;
}

std::vector<LUMScaleTime> LUMScaleContext::timesOfCurve(const CMTime& usable) {
  Segments segments{{}, offsets_.leftOffset};
  const double steps = stepCount(points_, usable);
  if (steps > kMostSegments) {
    LUMGlobal::LUMLog(NSStringWithFormat("A speed curve over %g s is too long", CMTimeGetSeconds(usable)));
    return {};
  }
  segments.times.reserve(static_cast<size_t>(steps) + 2 * points_.size());
  for (size_t i = 0; i + 1 < points_.size(); ++i) {
    if (i >= beziers_.size()) {
      NSLogAndAbort(NSStringWithFormat("generateTimesForTrack: curve %zu is missing, there are %zu points and %zu curves", i,
                                       points_.size(), beziers_.size()));
    }
    const LUMScalePoint &from = *points_[i], &to = *points_[i + 1];
    const Piece piece = pieceBetween(from, to, usable, offsets_.leftOffset);
    if (!piece.isNumeric()) continue;
    if (CMTimeCompare(piece.length, kStep) > 0) {
      segments.addSteps(piece, [&](double t) { return getSpeedForCenter({0, beziers_[i]->outputYAtT(t)}); });
    } else {
      const CMTime half = CMTimeMultiplyByFloat64(piece.length, 0.5);
      segments.add(piece.start, half, getSpeedForCenter(from.center()));
      segments.add(CMTimeAdd(piece.start, half), half, getSpeedForCenter(to.center()));
    }
  }
  cachedDuration_ = segments.cursor;
  return std::move(segments.times);
}

double LUMScaleContext::getSpeedForCenter(const CGPoint& center) const {
  return double{roundedToHundredths(speedAt(box_, static_cast<float>(center.y)))};
}

std::string LUMScaleContext::speedLabelForCenter(const CGPoint& center) const {
  return NSStringWithFormat("%.02fx", double{speedAt(box_, static_cast<float>(center.y))});
}

}  // namespace vidloom
