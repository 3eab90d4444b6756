// What every part of the library shares: time tests, the log line, frame rates and blank clips.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class AVAsset;

/// The published orientation codes; the ones with mirroring are never answered here.
enum class CGImagePropertyOrientation : uint32_t {
  up = 1,
  upMirrored = 2,
  down = 3,
  downMirrored = 4,
  leftMirrored = 5,
  right = 6,
  rightMirrored = 7,
  left = 8,
};

/// Class operations without state; any thread.
class LUMGlobal {
 public:
  LUMGlobal() = delete;

  /// The start-up hook. Does nothing.
  static void initLUM();

  /// The registry of object ids that tracks and instructions ask before they take one. It has no storage: adding and removing
  /// change nothing and no id is ever in it, so several objects may carry the same id.
  static bool LUMIdsStackContainsObject(uint64_t object);
  static void addItemInToLUMObjectIdsStack(uint64_t object);
  static void removeItemFromLUMObjectIdsStack(uint64_t object);

  /// One line in the system log: "[LUMLog] message".
  static void LUMLog(const std::string& message);

  /// The smaller time; of equal ones the first, with its flags and timescale.
  static CMTime CMTIME_MIN(const CMTime& time1, const CMTime& time2);
  /// Closed at both ends and exact: the end of the range is contained.
  static bool CMTIMERANGE_CONTAINS_TIME(const CMTimeRange& range, const CMTime& time);
  /// The same by frame numbers at `fps`, both ends included, which forgives up to a frame at either end.
  static bool CMTIMERANGE_CONTAINS_TIME(uint64_t fps, const CMTimeRange& range, const CMTime& time);
  /// Ranges that touch intersect. Compared in seconds.
  static bool CMTIMERANGE_IS_INTERSECT(const CMTimeRange& range, const CMTimeRange& timeRange);
  /// The timescale directly followed by the low 32 bits of the value, both in decimal: 1001/30000 is "300001001".
  static std::string CMTIME_DESCRIPTION(const CMTime& time);
  /// Always empty.
  static std::string CMTIMERANGE_TO_STRING(const CMTimeRange& range);

  /// By the rotation angle in whole degrees: right for 90, down for 180, left for -90, else up. Mirroring is not looked at.
  static CGImagePropertyOrientation CGImageOrientationFromCGAffineTransform(const CGAffineTransform& transform);

  /// 15, 25, 30, 60.
  static const std::vector<uint64_t>& availableFrameRates();
  /// A blank clip at that rate from the library's resources; whether its file is there is not checked. Null, with a line in the
  /// log, for a rate that is not available.
  static std::shared_ptr<AVAsset> LUMEmptyFootageForFPS(uint64_t fps);
};

}  // namespace vidloom
