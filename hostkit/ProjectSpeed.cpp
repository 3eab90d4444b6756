#include "hostkit/ProjectSpeed.h"

#include "hostkit/ProjectJson.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

class CurveReader {
 public:
  explicit CurveReader(ProjectJsonReader& reader) : reader_(reader) {}

  std::optional<ProjectSpeed> read(const ProjectJsonNode& node) {
    isGood_ = reader_.refuseOtherKeys(node, "a speed curve", {"box", "offsets", "points", "curves"});
    readBox(reader_.required(node, "box"));
    if (const auto offsets = node.member("offsets")) readOffsets(offsets);
    readPoints(reader_.required(node, "points"));
    if (const auto curves = node.member("curves")) readCurves(curves);
    return isGood_ ? std::optional<ProjectSpeed>(std::move(curve_)) : std::nullopt;
  }

 private:
  void refuse(const ProjectJsonNode& node, const std::string& message) {
    reader_.note(node.pointer, message);
    isGood_ = false;
  }

  void readBox(const ProjectJsonNode& node) {
    const auto n = node ? reader_.numbers(node, 4) : std::nullopt;
    if (!n) {
      isGood_ = false;
    } else if ((*n)[2] <= 0 || (*n)[3] <= 0) {
      refuse(node, "width and height must be greater than 0");
    } else {
      curve_.box = CGRectMake((*n)[0], (*n)[1], (*n)[2], (*n)[3]);
    }
  }

  void readOffsets(const ProjectJsonNode& node) {
    if (!node.value->is_array() || node.value->size() != 2) return refuse(node, "must be an array of 2 times");
    const auto left = reader_.time(node.element(0)), right = reader_.time(node.element(1));
    isGood_ = isGood_ && left && right;
    if (left && right) curve_.offsets = {*left, *right};
  }

  void readPoints(const ProjectJsonNode& node) {
    if (!node || !reader_.isArray(node)) {
      isGood_ = false;
      return;
    }
    for (size_t i = 0; i < node.value->size(); ++i) readPoint(node.element(i));
    if (node.value->size() < 2) refuse(node, "must be 2 points or more");
  }

  void readPoint(const ProjectJsonNode& node) {
    if (!reader_.isObject(node)) {
      isGood_ = false;
      return;
    }
    isGood_ = reader_.refuseOtherKeys(node, "a point", {"x", "y"}) && isGood_;
    const auto xNode = reader_.required(node, "x");
    const double x = numberAt(xNode), y = numberAt(reader_.required(node, "y"));
    if (x < 0 || x > 1) {
      refuse(xNode, "must lie between 0 and 1");
    } else if (!curve_.points.empty() && x < curve_.points.back().x) {
      refuse(xNode, "lies before the x of the point before");
    }
    curve_.points.push_back({x, y});
  }

  double numberAt(const ProjectJsonNode& node) {
    const auto number = node ? reader_.number(node) : std::nullopt;
    isGood_ = isGood_ && number;
    return number.value_or(0);
  }

  void readCurves(const ProjectJsonNode& node) {
    if (!reader_.isArray(node)) {
      isGood_ = false;
      return;
    }
    for (size_t i = 0; i < node.value->size(); ++i) readCurve(node.element(i));
    const size_t pairs = curve_.points.empty() ? 0 : curve_.points.size() - 1;
    if (!isGood_ || node.value->size() == pairs) return;
    refuse(node, "must be " + std::to_string(pairs) + ", one between each two points, not " + std::to_string(node.value->size()));
  }

  void readCurve(const ProjectJsonNode& node) {
    ProjectSpeedCurve::ControlPoints control;
    if (!node.value->is_array() || node.value->size() != control.size()) {
      return refuse(node, "must be an array of 4 points [x, y]");
    }
    for (size_t i = 0; i < control.size(); ++i) {
      const auto point = reader_.numbers(node.element(i), 2);
      isGood_ = isGood_ && point;
      if (point) control[i] = {(*point)[0], (*point)[1]};
    }
    curve_.curves.push_back(control);
  }

  ProjectJsonReader& reader_;
  ProjectSpeedCurve curve_;
  bool isGood_ = true;
};

std::shared_ptr<LUMScaleContext> contextOf(const ProjectSpeedCurve& curve) {
  std::vector<std::shared_ptr<LUMScalePoint>> points;
  for (const CGPoint& point : curve.points) {
    const CGPoint center{curve.box.origin.x + point.x * curve.box.size.width, point.y};
    points.push_back(LUMScalePoint::initWithX(static_cast<float>(point.x), static_cast<float>(point.y), center));
  }
  std::vector<std::shared_ptr<PWBezier>> beziers;
  for (const auto& c : curve.curves) beziers.push_back(PWBezier::initWithOrigin(c[0], c[1], c[2], c[3]));
  for (size_t i = beziers.size(); i + 1 < points.size(); ++i) {
    beziers.push_back(PWBezier::initWithStartPoint(points[i]->center(), points[i + 1]->center()));
  }
  return LUMScaleContext::initWithBox(curve.box, std::move(points), std::move(beziers), curve.offsets);
}

}  // namespace

std::optional<ProjectSpeed> readSpeed(ProjectJsonReader& reader, const ProjectJsonNode& node) {
  if (node.value->is_object()) return CurveReader(reader).read(node);
  if (node.value->is_number()) return node.value->get<double>();
  reader.note(node.pointer, std::string("must be a number or a curve, not ") + node.value->type_name());
  return std::nullopt;
}

std::shared_ptr<LUMScaleContext> scaleContextOf(const ProjectSpeed& speed) {
  const auto* const curve = std::get_if<ProjectSpeedCurve>(&speed);
  return curve ? contextOf(*curve) : LUMScaleContext::initWithLinearSpeed(std::get<double>(speed));
}

}  // namespace vidloom
