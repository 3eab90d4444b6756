#include "vidloom/timeline/LUMGlobal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/foundation/NSBundle.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

constexpr double kDegreesInHalfTurn = 180.0;
constexpr double kPi = 3.141592653589793;

using ObjectIds = std::map<uint64_t, uint64_t>;
/// Never created: the contract wants a registry that knows no id.
const std::unique_ptr<ObjectIds> kObjectIds;

/// Toward zero; what is below zero or no number is 0, what is too large the largest.
uint64_t wholeNumber(double value) {
  if (!(value > 0)) return 0;
  return value >= 0x1p64 ? std::numeric_limits<uint64_t>::max() : static_cast<uint64_t>(value);
}

}  // namespace

void LUMGlobal::initLUM() {}

bool LUMGlobal::LUMIdsStackContainsObject(uint64_t object) { return kObjectIds && kObjectIds->count(object) > 0; }

void LUMGlobal::addItemInToLUMObjectIdsStack(uint64_t object) {
  if (kObjectIds) kObjectIds->insert_or_assign(object, object);
}

void LUMGlobal::removeItemFromLUMObjectIdsStack(uint64_t object) {
  if (kObjectIds) kObjectIds->erase(object);
}

void LUMGlobal::LUMLog(const std::string& message) { NSLog("[LUMLog] " + message); }

CMTime LUMGlobal::CMTIME_MIN(const CMTime& time1, const CMTime& time2) { return CMTimeCompare(time1, time2) <= 0 ? time1 : time2; }

bool LUMGlobal::CMTIMERANGE_CONTAINS_TIME(const CMTimeRange& range, const CMTime& time) {
  return CMTimeCompare(time, range.start) >= 0 && CMTimeCompare(time, CMTimeAdd(range.start, range.duration)) <= 0;
}

bool LUMGlobal::CMTIMERANGE_CONTAINS_TIME(uint64_t fps, const CMTimeRange& range, const CMTime& time) {
  const auto rate = static_cast<double>(fps);
  const uint64_t first = wholeNumber(CMTimeGetSeconds(range.start) * rate);
  const uint64_t last = wholeNumber(std::fma(CMTimeGetSeconds(range.duration), rate, static_cast<double>(first)));
  const uint64_t frame = wholeNumber(CMTimeGetSeconds(time) * rate);
  return first <= frame && frame <= last;
}

bool LUMGlobal::CMTIMERANGE_IS_INTERSECT(const CMTimeRange& range, const CMTimeRange& timeRange) {
  const double start = CMTimeGetSeconds(range.start), otherStart = CMTimeGetSeconds(timeRange.start);
  const bool isBefore = start + CMTimeGetSeconds(range.duration) < otherStart;
  const bool isAfter = otherStart + CMTimeGetSeconds(timeRange.duration) < start;
  return !isBefore && !isAfter;
}

std::string LUMGlobal::CMTIME_DESCRIPTION(const CMTime& time) {
  return std::to_string(time.timescale) + std::to_string(static_cast<int32_t>(time.value));
}

std::string LUMGlobal::CMTIMERANGE_TO_STRING(const CMTimeRange&) { return {}; }

CGImagePropertyOrientation LUMGlobal::CGImageOrientationFromCGAffineTransform(const CGAffineTransform& transform) {
  const double degrees = std::trunc(std::atan2(transform.b, transform.a) * kDegreesInHalfTurn / kPi);
  if (degrees == 90) return CGImagePropertyOrientation::right;
  if (degrees == 180) return CGImagePropertyOrientation::down;
  if (degrees == -90) return CGImagePropertyOrientation::left;
  return CGImagePropertyOrientation::up;
}

const std::vector<uint64_t>& LUMGlobal::availableFrameRates() {
  static const std::vector<uint64_t> rates{15, 25, 30, 60};
  return rates;
}

std::shared_ptr<AVAsset> LUMGlobal::LUMEmptyFootageForFPS(uint64_t fps) {
  const auto& rates = availableFrameRates();
  if (std::find(rates.begin(), rates.end(), fps) == rates.end()) {
    LUMLog(NSStringWithFormat("This fps - %lu not supported", fps));
    return nullptr;
  }
  return AVAsset::assetWithURL(NSBundle::bundleForLibrary().pathForResource(NSStringWithFormat("empty_%lu_fps", fps), "mp4"));
}

}  // namespace vidloom
