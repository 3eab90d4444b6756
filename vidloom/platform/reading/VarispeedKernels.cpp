#include "vidloom/platform/reading/VarispeedKernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/reading/VarispeedKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// At most 16 lanes, the number that rows are padded to.
using Floats = hn::CappedTag<float, 16>;
using FloatVector = hn::Vec<Floats>;

struct StereoSum {
  FloatVector left, right;
};

HWY_INLINE StereoSum filter(const float* row, const float* nextRow, float weight, const float* left, const float* right, int taps) {
  const Floats floats;
  const FloatVector toNext = hn::Set(floats, weight);
  StereoSum sum{hn::Zero(floats), hn::Zero(floats)};
  for (int tap = 0; tap < taps; tap += static_cast<int>(hn::Lanes(floats))) {
    const FloatVector low = hn::LoadU(floats, row + tap);
    const FloatVector coefficients = hn::MulAdd(hn::Sub(hn::LoadU(floats, nextRow + tap), low), toNext, low);
    sum.left = hn::MulAdd(coefficients, hn::LoadU(floats, left + tap), sum.left);
    sum.right = hn::MulAdd(coefficients, hn::LoadU(floats, right + tap), sum.right);
  }
  return sum;
}

void ReadVarispeed(const VarispeedRows& rows, const float* left, const float* right, const double* positions, int count,
                   float* interleavedStereo) {
  const Floats floats;
  for (int i = 0; i < count; ++i) {
    const double whole = std::floor(positions[i]);
    const double phase = (positions[i] - whole) * rows.phases;
    const int number = std::min(static_cast<int>(phase), rows.phases - 1);
    const float* row = rows.coefficients + static_cast<int64_t>(number) * rows.taps;
    const int64_t first = static_cast<int64_t>(whole) - rows.taps / 2 + 1;
    const StereoSum sum = filter(row, row + rows.taps, static_cast<float>(phase - number), left + first, right + first, rows.taps);
    interleavedStereo[2 * i] = hn::GetLane(hn::SumOfLanes(floats, sum.left));
    interleavedStereo[2 * i + 1] = hn::GetLane(hn::SumOfLanes(floats, sum.right));
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {

HWY_EXPORT(ReadVarispeed);

void readVarispeed(const VarispeedRows& rows, const float* left, const float* right, const double* positions, int count,
                   float* interleavedStereo) {
  HWY_DYNAMIC_DISPATCH(ReadVarispeed)(rows, left, right, positions, count, interleavedStereo);
}

}  // namespace vidloom
#endif
