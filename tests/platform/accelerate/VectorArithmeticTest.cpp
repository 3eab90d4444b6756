#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

#include "tests/platform/pixels/EveryTarget.h"
#include "vidloom/platform/accelerate/vDSP.h"

namespace vidloom {
namespace {

using test::onEveryTarget;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::FloatEq;
using ::testing::FloatNear;
using ::testing::Pointwise;

constexpr float kFiller = 12345;

struct Strides {
  vDSP_Stride a, b, c;
};

TEST(VectorArithmetic, WorksOnEveryElementWhateverLengthAndStrides) {
  std::vector<float> a(500), b(500);
  std::vector<int16_t> shorts(500);
  for (size_t place = 0; place < 500; ++place) {
    a[place] = static_cast<float>(place % 41) - 20.5f;
    b[place] = 3.25f - static_cast<float>(place % 17);
    shorts[place] = static_cast<int16_t>(place * 1237);
  }
  const float low = -3, high = 7;
  const DSPSplitComplex split{a.data(), b.data()};
  const struct {
    const char* name;
    std::function<void(float* c, const Strides& s, vDSP_Length n)> operation;
    std::function<float(size_t i, size_t j)> expected;  ///< of a[i] and b[j]
  } cases[] = {
      {"vflt16", [&](float* c, const Strides& s, vDSP_Length n) { vDSP_vflt16(shorts.data(), s.a, c, s.c, n); },
       [&](size_t i, size_t) { return static_cast<float>(shorts[i]); }},
      {"vabs", [&](float* c, const Strides& s, vDSP_Length n) { vDSP_vabs(a.data(), s.a, c, s.c, n); },
       [&](size_t i, size_t) { return std::fabs(a[i]); }},
      {"vmul", [&](float* c, const Strides& s, vDSP_Length n) { vDSP_vmul(a.data(), s.a, b.data(), s.b, c, s.c, n); },
       [&](size_t i, size_t j) { return a[i] * b[j]; }},
      {"vclip", [&](float* c, const Strides& s, vDSP_Length n) { vDSP_vclip(a.data(), s.a, &low, &high, c, s.c, n); },
       [&](size_t i, size_t) { return std::min(std::max(a[i], low), high); }},
      {"zvmags", [&](float* c, const Strides& s, vDSP_Length n) { vDSP_zvmags(&split, s.a, c, s.c, n); },
       [&](size_t i, size_t) { return a[i] * a[i] + b[i] * b[i]; }},
  };
  onEveryTarget([&] {
    for (const auto& [name, operation, expected] : cases) {
      for (const Strides& s : {Strides{1, 1, 1}, {2, 1, 1}, {1, 3, 1}, {1, 1, 2}, {3, 2, 4}}) {
        for (const size_t length : {0, 1, 3, 4, 7, 16, 33, 100}) {
          std::vector<float> c(4 * length + 4, kFiller), all = c;
          for (size_t n = 0; n < length; ++n) all[n * size_t(s.c)] = expected(n * size_t(s.a), n * size_t(s.b));
          operation(c.data(), s, length);
          EXPECT_THAT(c, Pointwise(FloatEq(), all)) << name << " of " << length;
        }
      }
    }
  });
}

TEST(VectorArithmetic, DecibelsOfAmplitudesPowersAndSilence) {
  const float amplitudes[] = {32768, 16384, 104, 103, 1}, fullScale = 32767, low = -50, high = 0;
  float levels[5];
  vDSP_vdbcon(amplitudes, 1, &fullScale, levels, 1, 5, 1);
  EXPECT_THAT(levels,
              Pointwise(FloatNear(1e-5f), std::vector<float>{0.000265f, -6.020335f, -49.968067f, -50.051989f, -90.308734f}));
  vDSP_vclip(levels, 1, &low, &high, levels, 1, 5);
  EXPECT_THAT(levels, Pointwise(FloatNear(1e-5f), std::vector<float>{0, -6.020335f, -49.968067f, -50, -50}));
  const float powers[] = {100, kFiller, 2, kFiller, 0}, reference = 2;
  vDSP_vdbcon(powers, 2, &reference, levels, 1, 3, 0);
  EXPECT_THAT(std::vector(levels, levels + 3), ElementsAre(FloatEq(16.989700f), 0.0f, -std::numeric_limits<float>::infinity()));
}

TEST(VectorArithmetic, FiltersAndDecimates) {
  onEveryTarget([] {
    std::vector<float> ramp(200), filter(37), results(3);
    std::iota(ramp.begin(), ramp.end(), 1.0f);
    std::iota(filter.begin(), filter.end(), 0.0f);
    // A filter longer than a step, and longer than a vector with something left over: sums of p (1 + 5n + p).
    vDSP_desamp(ramp.data(), 5, filter.data(), results.data(), 3, filter.size());
    EXPECT_THAT(results, ElementsAre(FloatEq(16872), FloatEq(20202), FloatEq(23532)));
  });
}

TEST(VectorArithmetic, Means) {
  onEveryTarget([] {
    std::vector<float> ramp(203);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    const auto mean = [&ramp](vDSP_Stride stride, vDSP_Length length) {
      float result = 0;
      vDSP_meanv(ramp.data(), stride, &result, length);
      return result;
    };
    for (const vDSP_Length length : {1u, 5u, 101u, 203u}) EXPECT_FLOAT_EQ(mean(1, length), static_cast<float>(length - 1) / 2);
    EXPECT_FLOAT_EQ(mean(2, 101), 100);
    EXPECT_TRUE(std::isnan(mean(1, 0)));
  });
}

TEST(Windows, HaveTheirFormulas) {
  const struct {
    void (*make)(float* c, vDSP_Length length, int flag);
    int flag;
    std::vector<float> expected;
  } cases[] = {
      {vDSP_hann_window, vDSP_HANN_DENORM, {0, 0.1464466f, 0.5f, 0.8535534f, 1, 0.8535534f, 0.5f, 0.1464466f}},
      {vDSP_hann_window, vDSP_HANN_NORM, {0, 0.2391463f, 0.8164966f, 1.3938469f, 1.6329932f, 1.3938469f, 0.8164966f, 0.2391463f}},
      {vDSP_hamm_window, 0, {0.08f, 0.2147309f, 0.54f, 0.8652691f, 1, 0.8652691f, 0.54f, 0.2147309f}},
  };
  for (const auto& [make, flag, expected] : cases) {
    std::vector<float> window(8);
    make(window.data(), 8, flag);
    EXPECT_THAT(window, Pointwise(FloatNear(1e-6f), expected));
    // Half of an odd length includes its middle.
    std::vector<float> whole(9), half(9, kFiller);
    make(whole.data(), 9, flag);
    make(half.data(), 9, flag | vDSP_HALF_WINDOW);
    EXPECT_EQ(std::vector(half.begin(), half.begin() + 5), std::vector(whole.begin(), whole.begin() + 5));
    EXPECT_THAT(std::vector(half.begin() + 5, half.end()), Each(kFiller));
  }
}

}  // namespace
}  // namespace vidloom
