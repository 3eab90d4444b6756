#include "vidloom/platform/reading/VarispeedResampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vidloom {
namespace {

constexpr int kCount = 5000;

double tone(double cyclesPerFrame, double frame) { return 0.7 * std::sin(2 * std::numbers::pi * cyclesPerFrame * frame + 0.3); }
double decibels(double power) { return 10 * std::log10(std::max(power, 1e-30)); }

struct Powers {
  double heard = 0, ideal = 0, difference = 0;
};

/// Reads a tone at a steady speed from a position with an odd fraction, the right channel inverted.
Powers powersOf(double cyclesPerFrame, double speed) {
  VarispeedResampler resampler;
  const double start = resampler.reach(speed) + 0.377;
  std::vector<float> left, right, out(2 * kCount);
  for (int i = 0; i < kCount * speed + 2 * start + 2; ++i) {
    left.push_back(static_cast<float>(tone(cyclesPerFrame, i)));
    right.push_back(-left.back());
  }
  std::vector<double> positions;
  for (int i = 0; i < kCount; ++i) positions.push_back(start + i * speed);
  resampler.read(left.data(), right.data(), positions.data(), kCount, speed, out.data());
  Powers powers;
  for (size_t i = 0; i < kCount; ++i) {
    const double ideal = tone(cyclesPerFrame, positions[i]), heard = out[2 * i];
    EXPECT_EQ(out[2 * i + 1], -out[2 * i]);
    powers.heard = std::max(powers.heard, heard * heard);
    powers.ideal += ideal * ideal;
    powers.difference += (heard - ideal) * (heard - ideal);
  }
  return powers;
}

TEST(VarispeedResampler, KeepsTonesOfTheBandWithoutDelay) {
  const double rows[][2] = {{48000.0 / 44100, 440.0 / 48000},
                            {48000.0 / 44100, 17500.0 / 48000},
                            {8000.0 / 44100, 3200.0 / 8000},
                            {96000.0 / 44100, 15000.0 / 96000},
                            {1.0, 12000.0 / 44100},
                            {1.37, 9000.0 / 44100},
                            {10.0, 200.0 / 44100},
                            {0.25, 16000.0 / 44100},
                            {21.8, 500.0 / 96000},
                            {1.0884, 0}};
  for (const auto& [speed, cyclesPerFrame] : rows) {
    const Powers powers = powersOf(cyclesPerFrame, speed);
    EXPECT_GE(decibels(powers.ideal) - decibels(powers.difference), 95) << speed << " " << cyclesPerFrame;
  }
}

TEST(VarispeedResampler, RemovesWhatWouldFoldBack) {
  const double rows[][2] = {{96000.0 / 44100, 30000.0 / 96000},
                            {96000.0 / 44100, 45000.0 / 96000},
                            {2.0, 15000.0 / 44100},
                            {4.0, 7000.0 / 44100},
                            {10.0, 21000.0 / 44100},
                            {1.3, 19000.0 / 44100}};
  for (const auto& [speed, cyclesPerFrame] : rows) {
    EXPECT_LE(decibels(powersOf(cyclesPerFrame, speed).heard), -93) << speed << " " << cyclesPerFrame;
  }
}

}  // namespace
}  // namespace vidloom
