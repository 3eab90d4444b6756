// The transform of a layer: a 4 x 4 matrix that is applied to row vectors.
#pragma once

namespace vidloom {

/// All zero unless set.
struct CATransform3D {
  double m11 = 0, m12 = 0, m13 = 0, m14 = 0;
  double m21 = 0, m22 = 0, m23 = 0, m24 = 0;
  double m31 = 0, m32 = 0, m33 = 0, m34 = 0;
  double m41 = 0, m42 = 0, m43 = 0, m44 = 0;
  friend constexpr bool operator==(const CATransform3D&, const CATransform3D&) = default;
};

inline constexpr CATransform3D CATransform3DIdentity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

}  // namespace vidloom
