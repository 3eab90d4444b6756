#include "vidloom/platform/reading/VarispeedResampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vidloom {
namespace {

using Signal = std::function<double(double sourceFrame)>;

Signal tone(double cyclesPerFrame) {
  return [=](double frame) { return 0.7 * std::sin(2 * std::numbers::pi * cyclesPerFrame * frame + 0.3); };
}

/// Reads a signal at a steady speed from a position with an odd fraction; interleaved stereo, the right channel inverted.
std::vector<float> readSteadily(const Signal& signal, double speed, int count) {
  VarispeedResampler resampler;
  const int reach = resampler.reach(speed);
  const auto sourceFrames = static_cast<size_t>(count * speed) + 2 * static_cast<size_t>(reach) + 2;
  std::vector<float> left(sourceFrames), right(sourceFrames), out(2 * static_cast<size_t>(count));
  for (size_t i = 0; i < sourceFrames; ++i) {
    left[i] = static_cast<float>(signal(static_cast<double>(i)));
    right[i] = -left[i];
  }
  std::vector<double> positions;
  for (int i = 0; i < count; ++i) positions.push_back(reach + 0.377 + i * speed);
  resampler.read(left.data(), right.data(), positions.data(), count, speed, out.data());
  return out;
}

/// How far the signal lies above what differs from it, in dB.
double signalToNoise(const Signal& signal, double speed) {
  constexpr int kCount = 20000;
  const auto out = readSteadily(signal, speed, kCount);
  VarispeedResampler resampler;
  double power = 0, noise = 0;
  for (int i = 0; i < kCount; ++i) {
    const double ideal = signal(resampler.reach(speed) + 0.377 + i * speed);
    power += ideal * ideal;
    noise += std::pow(out[2 * static_cast<size_t>(i)] - ideal, 2);
    EXPECT_EQ(out[2 * static_cast<size_t>(i)], -out[2 * static_cast<size_t>(i) + 1]);
  }
  return 10 * std::log10(power / noise);
}

double loudest(const std::vector<float>& samples) {
  float peak = 0;
  for (const float sample : samples) peak = std::max(peak, std::abs(sample));
  return 20 * std::log10(std::max(1e-9, static_cast<double>(peak)));
}

TEST(VarispeedResampler, KeepsTonesOfTheBandWithoutDelay) {
  const double rows[][2] = {{48000.0 / 44100, 440.0 / 48000},
                            {48000.0 / 44100, 17500.0 / 48000},
                            {8000.0 / 44100, 3200.0 / 8000},
                            {96000.0 / 44100, 15000.0 / 96000},
                            {22050.0 / 44100, 8000.0 / 22050},
                            {1.0, 12000.0 / 44100},
                            {1.37, 9000.0 / 44100},
                            {10.0, 200.0 / 44100},
                            {0.25, 16000.0 / 44100},
                            {21.8, 500.0 / 96000},
                            {1.0884, 0}};
  for (const auto& [speed, cyclesPerFrame] : rows) {
    EXPECT_GE(signalToNoise(tone(cyclesPerFrame), speed), 95) << speed << " " << cyclesPerFrame;
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
    EXPECT_LE(loudest(readSteadily(tone(cyclesPerFrame), speed, 5000)), -93) << speed << " " << cyclesPerFrame;
  }
}

}  // namespace
}  // namespace vidloom
