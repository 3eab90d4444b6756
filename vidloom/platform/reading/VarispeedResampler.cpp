#include "vidloom/platform/reading/VarispeedResampler.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vidloom {

namespace {

constexpr int kTaps = 64;         // at speeds up to 1; faster ones have as many more as they are faster
constexpr int kTapsMultiple = 8;  // what the loops below are unrolled to
constexpr int kPhases = 512;      // of linear interpolation between neighbouring rows: error below -106 dB
constexpr int kMinimumPhases = 32;
constexpr double kCutoff = 0.94;       // middle of the transition band, of the lower of both Nyquist frequencies
constexpr double kKaiserBeta = 10.06;  // stop band at -100 dB
constexpr double kBanksPerOctave = 8;

double besselI0(double x) {
  double sum = 1, term = 1;
  for (int k = 1; term > sum * 1e-17; ++k) {
    term *= (x / (2 * k)) * (x / (2 * k));
    sum += term;
  }
  return sum;
}

double sinc(double x) { return std::abs(x) < 1e-12 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x); }

double kaiser(double x) { return std::abs(x) >= 1 ? 0.0 : besselI0(kKaiserBeta * std::sqrt(1 - x * x)) / besselI0(kKaiserBeta); }

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
  const double cutoff = kCutoff / speed;
  std::vector<double> row(static_cast<size_t>(bank.taps));
  for (int phase = 0; phase <= bank.phases; ++phase) {
    double sum = 0;
    for (int tap = 0; tap < bank.taps; ++tap) {
      const double distance = static_cast<double>(phase) / bank.phases - (tap - bank.taps / 2 + 1);
      row[static_cast<size_t>(tap)] = sinc(cutoff * distance) * kaiser(distance / (bank.taps / 2));
      sum += row[static_cast<size_t>(tap)];
    }
    float* out = &bank.rows[static_cast<size_t>(phase) * static_cast<size_t>(bank.taps)];
    std::transform(row.begin(), row.end(), out, [&](double value) { return static_cast<float>(value / sum); });
  }
  return bank;
}

const VarispeedResampler::Bank& VarispeedResampler::bankFor(double speed) {
  const int number = bankNumber(speed);
  const auto found = banks_.find(number);
  if (found != banks_.end()) return found->second;
  return banks_.emplace(number, makeBank(bankSpeed(number))).first->second;
}

namespace {

/// Sums over the taps in eight lanes, which the compiler turns into vectors.
void filterFrame(const float* left, const float* right, const float* row, const float* nextRow, float weight, int taps,
                 float* out) {
  float sumLeft[kTapsMultiple] = {}, sumRight[kTapsMultiple] = {};
  for (int tap = 0; tap < taps; tap += kTapsMultiple) {
    for (int lane = 0; lane < kTapsMultiple; ++lane) {
      const float coefficient = row[tap + lane] + weight * (nextRow[tap + lane] - row[tap + lane]);
      sumLeft[lane] += coefficient * left[tap + lane];
      sumRight[lane] += coefficient * right[tap + lane];
    }
  }
  for (int half = kTapsMultiple / 2; half > 0; half /= 2) {
    for (int lane = 0; lane < half; ++lane) {
      sumLeft[lane] += sumLeft[lane + half];
      sumRight[lane] += sumRight[lane + half];
    }
  }
  out[0] = sumLeft[0];
  out[1] = sumRight[0];
}

}  // namespace

void VarispeedResampler::read(const float* left, const float* right, const double* positions, int count, double speed,
                              float* interleavedStereo) {
  const Bank& bank = bankFor(speed);
  for (int i = 0; i < count; ++i) {
    const double whole = std::floor(positions[i]);
    const double phase = (positions[i] - whole) * bank.phases;
    const int rowNumber = std::min(static_cast<int>(phase), bank.phases - 1);
    const float* row = &bank.rows[static_cast<size_t>(rowNumber) * static_cast<size_t>(bank.taps)];
    const auto first = static_cast<int64_t>(whole) - bank.taps / 2 + 1;
    filterFrame(left + first, right + first, row, row + bank.taps, static_cast<float>(phase - rowNumber), bank.taps,
                interleavedStereo + 2 * i);
  }
}

}  // namespace vidloom
