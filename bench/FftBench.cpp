// The packed real transform with powers beside FFTW (single precision, plans measured patiently). Alternating rounds:
// --benchmark_enable_random_interleaving=true --benchmark_repetitions=9 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "vidloom/audio/TempiFFT.h"
#include "vidloom/platform/accelerate/vDSP_fft.h"

namespace vidloom {
namespace {

std::vector<float> noise(size_t count) {
  std::minstd_rand random(1);
  std::uniform_real_distribution<float> values(-1, 1);
  std::vector<float> samples(count);
  for (float& sample : samples) sample = values(random);
  return samples;
}

struct FftwDeleter {
  void operator()(float* memory) const { fftwf_free(memory); }
  void operator()(fftwf_plan plan) const { fftwf_destroy_plan(plan); }
};
using FftwFloats = std::unique_ptr<float, FftwDeleter>;
using FftwPlan = std::unique_ptr<std::remove_pointer_t<fftwf_plan>, FftwDeleter>;

FftwFloats fftwFloats(size_t count) { return FftwFloats(fftwf_alloc_real(count)); }

/// Samples in order, spectrum as complex numbers; planned once a size.
struct FftwTransform {
  explicit FftwTransform(size_t size) : samples(fftwFloats(size)), spectrum(fftwFloats(size + 2)) {
    plan.reset(fftwf_plan_dft_r2c_1d(static_cast<int>(size), samples.get(), reinterpret_cast<fftwf_complex*>(spectrum.get()),
                                     FFTW_PATIENT | FFTW_DESTROY_INPUT));
    const std::vector<float> values = noise(size);
    std::copy(values.begin(), values.end(), samples.get());
  }
  FftwFloats samples, spectrum;
  FftwPlan plan;
};

[[gnu::target_clones("arch=skylake-avx512", "arch=haswell", "default")]] void powersOf(const float* numbers, size_t count,
                                                                                       float* powers) {
  for (size_t n = 0; n < count; ++n) powers[n] = numbers[2 * n] * numbers[2 * n] + numbers[2 * n + 1] * numbers[2 * n + 1];
}

[[gnu::target_clones("arch=skylake-avx512", "arch=haswell", "default")]] void packed(const float* numbers, size_t count,
                                                                                     float* real, float* imaginary, float* powers) {
  for (size_t n = 0; n < count; ++n) {
    const float re = 2 * numbers[2 * n], im = 2 * numbers[2 * n + 1];
    real[n] = re;
    imaginary[n] = im;
    powers[n] = re * re + im * im;
  }
}

[[gnu::target_clones("arch=skylake-avx512", "arch=haswell", "default")]] void doubledWithPowers(float* real, float* imaginary,
                                                                                                size_t count, float* powers) {
  for (size_t n = 0; n < count; ++n) {
    const float re = 2 * real[n], im = 2 * imaginary[n];
    real[n] = re;
    imaginary[n] = im;
    powers[n] = re * re + im * im;
  }
}

void PackedWithPowers(benchmark::State& state) {
  const auto log2n = static_cast<vDSP_Length>(state.range(0));
  const size_t count = size_t{1} << (log2n - 1);
  // The time does not depend on the values, and zeros stay in range however often they are transformed in place.
  std::vector<float> real(count), imaginary(count), powers(count);
  const DSPSplitComplex split{real.data(), imaginary.data()};
  const FFTSetup setup = vDSP_create_fftsetup(log2n, kFFTRadix2);
  for (auto _ : state) {
    vDSP_fft_zrip(setup, &split, 1, log2n, kFFTDirection_Forward);
    vDSP_zvmags(&split, 1, powers.data(), 1, count);
    benchmark::DoNotOptimize(powers.data());
    benchmark::ClobberMemory();
  }
}

void Forward(benchmark::State& state, TempiFFTWindowType window) {
  const auto fft = TempiFFT::init(int64_t{1} << state.range(0), 44100);
  fft->setWindowType(window);
  const std::vector<float> samples = noise(static_cast<size_t>(fft->size()));
  for (auto _ : state) {
    fft->forward(samples);
    benchmark::DoNotOptimize(fft->magnitudes().data());
    benchmark::ClobberMemory();
  }
}

void FftwPacked(benchmark::State& state) {
  const size_t size = size_t{1} << state.range(0);
  const FftwTransform fftw(size);
  std::vector<float> real(size / 2), imaginary(size / 2), powers(size / 2);
  for (auto _ : state) {
    fftwf_execute(fftw.plan.get());
    packed(fftw.spectrum.get(), size / 2, real.data(), imaginary.data(), powers.data());
    imaginary[0] = 2 * fftw.spectrum.get()[size];
    powers[0] += imaginary[0] * imaginary[0];
    benchmark::DoNotOptimize(powers.data());
    benchmark::ClobberMemory();
  }
}

/// FFTW's own split output.
void FftwSplit(benchmark::State& state) {
  const size_t size = size_t{1} << state.range(0);
  const FftwFloats samples = fftwFloats(size), real = fftwFloats(size / 2 + 16), imaginary = fftwFloats(size / 2 + 16);
  const fftwf_iodim dimension{static_cast<int>(size), 1, 1};
  const FftwPlan plan(fftwf_plan_guru_split_dft_r2c(1, &dimension, 0, nullptr, samples.get(), real.get(), imaginary.get(),
                                                    FFTW_PATIENT | FFTW_DESTROY_INPUT));
  const std::vector<float> values = noise(size);
  std::copy(values.begin(), values.end(), samples.get());
  std::vector<float> powers(size / 2);
  for (auto _ : state) {
    fftwf_execute(plan.get());
    imaginary.get()[0] = real.get()[size / 2];
    doubledWithPowers(real.get(), imaginary.get(), size / 2, powers.data());
    benchmark::DoNotOptimize(powers.data());
    benchmark::ClobberMemory();
  }
}

/// The least that FFTW can be asked for: powers, straight from its own numbers, no packed spectrum.
void FftwPowersOnly(benchmark::State& state) {
  const size_t size = size_t{1} << state.range(0);
  const FftwTransform fftw(size);
  std::vector<float> powers(size / 2);
  for (auto _ : state) {
    fftwf_execute(fftw.plan.get());
    powersOf(fftw.spectrum.get(), size / 2, powers.data());
    benchmark::DoNotOptimize(powers.data());
    benchmark::ClobberMemory();
  }
}

BENCHMARK(PackedWithPowers)->DenseRange(8, 16);
BENCHMARK_CAPTURE(Forward, none, TempiFFTWindowType::none)->DenseRange(8, 16);
BENCHMARK_CAPTURE(Forward, hanning, TempiFFTWindowType::hanning)->DenseRange(8, 16);
BENCHMARK(FftwPacked)->DenseRange(8, 16);
BENCHMARK(FftwSplit)->DenseRange(8, 16);
BENCHMARK(FftwPowersOnly)->DenseRange(8, 16);

}  // namespace
}  // namespace vidloom
