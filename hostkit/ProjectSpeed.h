// The speed of a project's track.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/speed/LUMScaleContext.h"

namespace vidloom {

class ProjectJsonReader;
struct ProjectJsonNode;

/// A curve drawn in a box: heights between 10 times (the smallest y) and 0.2 times (the largest).
struct ProjectSpeedCurve {
  using ControlPoints = std::array<CGPoint, 4>;

  CGRect box;
  LUMScaleContext::Offsets offsets;   ///< a head and a tail that the curve leaves out
  std::vector<CGPoint> points;        ///< x: fraction of the length that the curve covers; y: height in the box
  std::vector<ControlPoints> curves;  ///< in box coordinates, one between each two points; none: straight lines
};

/// One constant factor, or a curve.
using ProjectSpeed = std::variant<double, ProjectSpeedCurve>;

/// Nullopt, with a note for everything that is wrong, for a value that is no speed. Whether tracks can be played at it shows only
/// with their lengths.
std::optional<ProjectSpeed> readSpeed(ProjectJsonReader& reader, const ProjectJsonNode& node);

std::shared_ptr<LUMScaleContext> scaleContextOf(const ProjectSpeed& speed);

}  // namespace vidloom
