#include "vidloom/platform/reading/VarispeedResampler.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "vidloom/platform/reading/VarispeedKernels.h"

namespace vidloom {

namespace {

constexpr int kTaps = 64;          // at speeds up to 1; faster ones have as many more as they are faster
constexpr int kTapsMultiple = 16;  // what the kernel reads at once at most
constexpr int kPhases = 512;       // of linear interpolation between neighbouring rows: error below -106 dB
constexpr int kMinimumPhases = 32;
constexpr double kCutoff = 0.94;       // middle of the transition band, of the lower of both Nyquist frequencies
constexpr double kKaiserBeta = 10.06;  // stop band at -100 dB
constexpr int kWindowSteps = 4096;     // of linear interpolation in the window: error below -120 dB
constexpr double kBanksPerOctave = 8;

double besselI0(double x) {
  double sum = 1, term = 1;
  const double quarterSquare = x * x / 4;
  for (int k = 1; term > sum * 1e-10; ++k) {
    term *= quarterSquare / (k * k);
    sum += term;
  }
  return sum;
}

/// One half of a Kaiser window from its middle (1) to its edge, and zeros beyond.
const std::vector<double>& windowTable() {
  static const std::vector<double> table = [] {
    std::vector<double> values(kWindowSteps + 2, 0.0);
    const double middle = besselI0(kKaiserBeta);
    for (int i = 0; i < kWindowSteps; ++i) {
      const double x = static_cast<double>(i) / kWindowSteps;
      values[static_cast<size_t>(i)] = besselI0(kKaiserBeta * std::sqrt(1 - x * x)) / middle;
    }
    return values;
  }();
  return table;
}

/// Writes the coefficients for a position that lies `fraction` after the frame of tap taps/2 - 1; they add up to 1.
void makeRow(double fraction, double cutoff, int taps, float* row) {
  const double* window = windowTable().data();
  const double step = std::numbers::pi * cutoff;
  const double cosStep = std::cos(step), sinStep = std::sin(step);
  double distance = fraction + taps / 2 - 1;
  double sine = std::sin(step * distance), cosine = std::cos(step * distance);
  double sum = 0;
  for (int tap = 0; tap < taps; ++tap, distance -= 1) {
    const double place = std::min(std::abs(distance) / (taps / 2), 1.0) * kWindowSteps;
    const auto index = static_cast<int>(place);
    const double weight = window[index] + (place - index) * (window[index + 1] - window[index]);
    const double value = weight * (std::abs(distance) < 1e-9 ? 1.0 : sine / (step * distance));
    row[tap] = static_cast<float>(value);
    sum += value;
    // The sine of the next distance, one step back.
    const double turned = sine * cosStep - cosine * sinStep;
    cosine = cosine * cosStep + sine * sinStep;
    sine = turned;
  }
  const auto scale = static_cast<float>(1 / sum);
  for (int tap = 0; tap < taps; ++tap) row[tap] *= scale;
}

}  // namespace

int VarispeedResampler::bankNumber(double speed) {
  // A hair of tolerance keeps speeds that are 1 but for rounding on the bank of speed 1.
  return speed <= 1.0 + 1e-9 ? 0 : static_cast<int>(std::ceil(std::log2(speed) * kBanksPerOctave - 1e-9));
}

double VarispeedResampler::bankSpeed(int number) { return std::exp2(number / kBanksPerOctave); }

int VarispeedResampler::reach(double speed) const {
  const double taps = kTaps * bankSpeed(bankNumber(speed));
  return (static_cast<int>(std::ceil(taps)) + kTapsMultiple) / 2 + 1;
}

VarispeedResampler::Bank VarispeedResampler::makeBank(double speed) {
  Bank bank;
  bank.taps = (static_cast<int>(std::ceil(kTaps * speed)) + kTapsMultiple - 1) / kTapsMultiple * kTapsMultiple;
  bank.phases = std::max(kMinimumPhases, static_cast<int>(std::ceil(kPhases / speed)));
  bank.rows.resize(static_cast<size_t>(bank.phases + 1) * static_cast<size_t>(bank.taps));
  for (int phase = 0; phase <= bank.phases; ++phase) {
    makeRow(static_cast<double>(phase) / bank.phases, kCutoff / speed, bank.taps,
            &bank.rows[static_cast<size_t>(phase) * static_cast<size_t>(bank.taps)]);
  }
  return bank;
}

const VarispeedResampler::Bank& VarispeedResampler::bankFor(double speed) {
  const int number = bankNumber(speed);
  const auto found = banks_.find(number);
  if (found != banks_.end()) return found->second;
  return banks_.emplace(number, makeBank(bankSpeed(number))).first->second;
}

void VarispeedResampler::read(const float* left, const float* right, const double* positions, int count, double speed,
                              float* interleavedStereo) {
  const Bank& bank = bankFor(speed);
  readVarispeed({bank.rows.data(), bank.taps, bank.phases}, left, right, positions, count, interleavedStereo);
}

}  // namespace vidloom
