#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
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

/// Lengths around those of vectors.
const vDSP_Length kLengths[] = {0, 1, 3, 4, 7, 16, 33, 100};
constexpr float kFiller = 12345;

struct Strides {
  vDSP_Stride a, b, c;
};
const Strides kStrides[] = {{1, 1, 1}, {2, 1, 1}, {1, 3, 1}, {1, 1, 2}, {3, 2, 4}};

/// Runs operation(c, strides, length) for all lengths and strides; c[n] has to be expected(n a-stride, n b-stride) and nothing else
/// may change.
template <class Operation, class Expected>
void expectElements(Operation operation, Expected expected) {
  onEveryTarget([&] {
    for (const Strides& strides : kStrides) {
      for (const vDSP_Length length : kLengths) {
        std::vector<float> c(4 * length + 4, kFiller);
        operation(c.data(), strides, length);
        for (vDSP_Stride place = 0; place < static_cast<vDSP_Stride>(c.size()); ++place) {
          const vDSP_Stride n = place / strides.c;
          const bool written = place % strides.c == 0 && n < static_cast<vDSP_Stride>(length);
          ASSERT_FLOAT_EQ(c[place], written ? expected(n * strides.a, n * strides.b) : kFiller) << length << " at " << place;
        }
      }
    }
  });
}

float first(vDSP_Stride place) { return static_cast<float>(place % 41) - 20.5f; }
float second(vDSP_Stride place) { return 3.25f - static_cast<float>(place % 17); }

TEST(VectorArithmetic, WorksOnEveryElementWhateverLengthAndStrides) {
  std::vector<float> a(1000), b(1000);
  std::vector<int16_t> shorts(1000);
  for (vDSP_Stride place = 0; place < 1000; ++place) {
    a[place] = first(place);
    b[place] = second(place);
    shorts[place] = static_cast<int16_t>(place * 1237);
  }
  const float low = -3, high = 7;
  const DSPSplitComplex split{a.data(), b.data()};
  expectElements([&](float* c, const Strides& s, vDSP_Length n) { vDSP_vflt16(shorts.data(), s.a, c, s.c, n); },
                 [&](vDSP_Stride i, vDSP_Stride) { return static_cast<float>(shorts[i]); });
  expectElements([&](float* c, const Strides& s, vDSP_Length n) { vDSP_vabs(a.data(), s.a, c, s.c, n); },
                 [](vDSP_Stride i, vDSP_Stride) { return std::fabs(first(i)); });
  expectElements([&](float* c, const Strides& s, vDSP_Length n) { vDSP_vmul(a.data(), s.a, b.data(), s.b, c, s.c, n); },
                 [](vDSP_Stride i, vDSP_Stride j) { return first(i) * second(j); });
  expectElements([&](float* c, const Strides& s, vDSP_Length n) { vDSP_vclip(a.data(), s.a, &low, &high, c, s.c, n); },
                 [&](vDSP_Stride i, vDSP_Stride) { return std::min(std::max(first(i), low), high); });
  expectElements([&](float* c, const Strides& s, vDSP_Length n) { vDSP_zvmags(&split, s.a, c, s.c, n); },
                 [](vDSP_Stride i, vDSP_Stride) { return first(i) * first(i) + second(i) * second(i); });
}

TEST(VectorArithmetic, TurnsSamplesIntoLevels) {
  const struct {
    int16_t sample;
    float decibels, clipped;
  } cases[] = {{-32768, 0.000265f, 0},           {32767, 0, 0},
               {16384, -6.020335f, -6.020335f},  {10000, -10.308734f, -10.308734f},
               {3277, -19.999205f, -19.999205f}, {1000, -30.308734f, -30.308734f},
               {328, -39.991257f, -39.991257f},  {104, -49.968067f, -49.968067f},
               {103, -50.051989f, -50},          {1, -90.308734f, -50}};
  const float fullScale = 32767, low = -50, high = 0;
  for (const auto& [sample, decibels, clipped] : cases) {
    float value = 0;
    vDSP_vflt16(&sample, 1, &value, 1, 1);
    vDSP_vabs(&value, 1, &value, 1, 1);
    EXPECT_EQ(value, std::fabs(static_cast<float>(sample)));
    vDSP_vdbcon(&value, 1, &fullScale, &value, 1, 1, 1);
    EXPECT_NEAR(value, decibels, 1e-5) << sample;
    vDSP_vclip(&value, 1, &low, &high, &value, 1, 1);
    EXPECT_NEAR(value, clipped, 1e-5) << sample;
  }
}

TEST(VectorArithmetic, DecibelsOfPowersAndOfSilence) {
  const float values[] = {100, kFiller, 2, kFiller, 0}, reference = 2, low = -50, high = 0;
  float levels[3] = {};
  vDSP_vdbcon(values, 2, &reference, levels, 1, 3, 0);
  EXPECT_THAT(levels, ElementsAre(FloatEq(16.989700f), 0.0f, -std::numeric_limits<float>::infinity()));
  vDSP_vclip(levels, 1, &low, &high, levels, 1, 3);
  EXPECT_THAT(levels, ElementsAre(0.0f, 0.0f, -50.0f));
}

TEST(VectorArithmetic, FiltersAndDecimates) {
  onEveryTarget([] {
    std::vector<float> ramp(200);
    std::iota(ramp.begin(), ramp.end(), 1.0f);
    std::vector<float> means(4);
    vDSP_desamp(ramp.data(), 2, std::vector<float>(2, 0.5f).data(), means.data(), 4, 2);
    EXPECT_THAT(means, ElementsAre(1.5f, 3.5f, 5.5f, 7.5f));
    // A filter longer than a step, and longer than a vector with something left over: 37 factors 0 ... 36.
    std::vector<float> filter(37), results(3);
    std::iota(filter.begin(), filter.end(), 0.0f);
    vDSP_desamp(ramp.data(), 5, filter.data(), results.data(), 3, filter.size());
    // sum of p (1 + 5n + p) = 666 (1 + 5n) + 16206
    EXPECT_THAT(results, ElementsAre(FloatEq(16872), FloatEq(20202), FloatEq(23532)));
  });
}

TEST(VectorArithmetic, Means) {
  onEveryTarget([] {
    std::vector<float> ramp(203);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    float mean = 0;
    for (const vDSP_Length length : {1u, 5u, 101u, 203u}) {
      vDSP_meanv(ramp.data(), 1, &mean, length);
      EXPECT_FLOAT_EQ(mean, static_cast<float>(length - 1) / 2);
    }
    vDSP_meanv(ramp.data(), 2, &mean, 101);
    EXPECT_FLOAT_EQ(mean, 100);
    vDSP_meanv(ramp.data(), 1, &mean, 0);
    EXPECT_TRUE(std::isnan(mean));
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

TEST(Windows, TheNormalisedOneKeepsTheMeanSquare) {
  std::vector<float> window(4096);
  vDSP_hann_window(window.data(), window.size(), vDSP_HANN_NORM);
  EXPECT_NEAR(std::inner_product(window.begin(), window.end(), window.begin(), 0.0) / 4096, 1, 1e-6);
}

}  // namespace
}  // namespace vidloom
