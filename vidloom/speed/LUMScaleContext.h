// The speed of a track: one constant, or a curve drawn in an editing box.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/speed/LUMScaleTime.h"

namespace vidloom {

class LUMScalePoint;
class LUMTrack;
class PWBezier;

/// Used from one thread at a time.
class LUMScaleContext {
 public:
  /// A head and a tail of the track's used content that the curve leaves out.
  struct Offsets {
    CMTime leftOffset = kCMTimeZero;
    CMTime rightOffset = kCMTimeZero;
  };

  /// Curve i joins the points i and i + 1. The numbers of points and curves are not checked here.
  static std::shared_ptr<LUMScaleContext> initWithBox(const CGRect& box, std::vector<std::shared_ptr<LUMScalePoint>> points,
                                                      std::vector<std::shared_ptr<PWBezier>> beziers, const Offsets& offsets);
  static std::shared_ptr<LUMScaleContext> initWithLinearSpeed(double linearSpeed);
  /// Of a constant: only the speed, as a float. Of a curve: box, offsets, copies of the points, the same curve objects.
  virtual std::shared_ptr<LUMScaleContext> copy() const;
  virtual ~LUMScaleContext() = default;

  const std::vector<std::shared_ptr<LUMScalePoint>>& points() const { return points_; }
  const std::vector<std::shared_ptr<PWBezier>>& beziers() const { return beziers_; }
  /// Set: a constant speed; points and curves take no part.
  const std::optional<double>& linearSpeed() const { return linearSpeed_; }
  const CGRect& box() const { return box_; }
  const Offsets& offsets() const { return offsets_; }
  /// Offsets that are not numbers become zero.
  void setOffsets(const Offsets& offsets);
  void validateOffsets();
  /// Where the last generation from a curve ended on the output.
  const CMTime& cachedDuration() const { return cachedDuration_; }
  void setCachedDuration(const CMTime& cachedDuration) { cachedDuration_ = cachedDuration; }
  NSDictionary& userInfo() { return userInfo_; }
  const NSDictionary& userInfo() const { return userInfo_; }
  void setUserInfo(NSDictionary userInfo) { userInfo_ = std::move(userInfo); }

  /// The track's content in pieces of one speed each, in order; made anew by every call. A speed of zero gives pieces of invalid
  /// length, a negative one of negative length. Stops the program where a curve is missing between two points. A pair of
  /// points whose times are no numbers adds nothing; a curve of more than a million segments is logged and gives an empty list.
  virtual std::vector<LUMScaleTime> generateTimesForTrack(const std::shared_ptr<const LUMTrack>& track);
  /// From 10 at the box's smallest y over 1 in its middle to 0.2 at its largest, rounded to two decimals; outside the box it goes
  /// on like that.
  double getSpeedForCenter(const CGPoint& center) const;
  /// The same as the editor shows it: "0.60x".
  std::string speedLabelForCenter(const CGPoint& center) const;

 protected:
  LUMScaleContext() = default;

  /// Room for a cache of generated lists in a derived class; left alone here.
  std::vector<LUMScaleTime> cachedTimes_;
  std::string cachedKey_;

 private:
  std::vector<LUMScaleTime> timesOfCurve(const CMTime& usable);

  std::vector<std::shared_ptr<LUMScalePoint>> points_;
  std::vector<std::shared_ptr<PWBezier>> beziers_;
  std::optional<double> linearSpeed_;
  NSDictionary userInfo_;
  CMTime cachedDuration_;
  CGRect box_;
  Offsets offsets_;
};

}  // namespace vidloom
