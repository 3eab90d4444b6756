#include "vidloom/platform/ffmpeg/RealTransformKernels.h"

#include <complex>
#include <cstdint>
#include <numbers>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/ffmpeg/RealTransformKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class D>
struct Numbers {
  hn::Vec<D> re, im;
};

template <class D>
HWY_INLINE Numbers<D> add(D, const Numbers<D>& a, const Numbers<D>& b) {
  return {hn::Add(a.re, b.re), hn::Add(a.im, b.im)};
}

template <class D>
HWY_INLINE Numbers<D> subtract(D, const Numbers<D>& a, const Numbers<D>& b) {
  return {hn::Sub(a.re, b.re), hn::Sub(a.im, b.im)};
}

template <class D>
HWY_INLINE Numbers<D> multiply(D, const Numbers<D>& a, const Numbers<D>& b) {
  return {hn::NegMulAdd(a.im, b.im, hn::Mul(a.re, b.re)), hn::MulAdd(a.im, b.re, hn::Mul(a.re, b.im))};
}

/// a times the conjugate of b.
template <class D>
HWY_INLINE Numbers<D> multiplyConjugate(D, const Numbers<D>& a, const Numbers<D>& b) {
  return {hn::MulAdd(a.im, b.im, hn::Mul(a.re, b.re)), hn::NegMulAdd(a.re, b.im, hn::Mul(a.im, b.re))};
}

/// -i a
template <class D>
HWY_INLINE Numbers<D> turn(D, const Numbers<D>& a) {
  return {a.im, hn::Neg(a.re)};
}

template <class D>
HWY_INLINE Numbers<D> load(D d, const float* row, size_t index) {
  const auto low = hn::LoadU(d, row + 2 * index), high = hn::LoadU(d, row + 2 * index + hn::Lanes(d));
  return {hn::ConcatEven(d, high, low), hn::ConcatOdd(d, high, low)};
}

/// The numbers from row[index] downwards.
template <class D>
HWY_INLINE Numbers<D> loadReversed(D d, const float* row, size_t index) {
  const Numbers<D> numbers = load(d, row, index + 1 - hn::Lanes(d));
  return {hn::Reverse(d, numbers.re), hn::Reverse(d, numbers.im)};
}

template <class D>
HWY_INLINE void store(D d, const Numbers<D>& numbers, const PackedSpectrum& spectrum, size_t index) {
  hn::StoreU(numbers.re, d, spectrum.real + index);
  hn::StoreU(numbers.im, d, spectrum.imaginary + index);
}

/// From a = z[k] and b = z[M - k] of the complex spectrum and turned = i exp(-2 pi i k / 2M) the packed numbers k and M - k.
template <class D>
HWY_INLINE void untangle(D d, const Numbers<D>& a, const Numbers<D>& b, const Numbers<D>& turned, bool turnOnce,
                         const PackedSpectrum& spectrum, size_t index, size_t mirroredIndex) {
  const Numbers<D> even{hn::Add(a.re, b.re), hn::Sub(a.im, b.im)};
  const Numbers<D> odd{hn::Sub(a.re, b.re), hn::Add(a.im, b.im)};
  Numbers<D> product = multiply(d, odd, turned);
  if (turnOnce) product = turn(d, product);
  store(d, subtract(d, even, product), spectrum, index);
  const Numbers<D> sum = add(d, even, product);
  store(d, Numbers<D>{hn::Reverse(d, sum.re), hn::Reverse(d, hn::Neg(sum.im))}, spectrum, mirroredIndex + 1 - hn::Lanes(d));
}

/// The numbers q ... of each quarter of the spectrum and those that mirror them, Q - q ..., together.
template <class D>
HWY_INLINE void joinAt(D d, size_t q, const QuarterRows& rows, const QuarterRoots& roots, const PackedSpectrum& spectrum) {
  const size_t length = rows.length, p = length - q;
  const Numbers<D> root{hn::LoadU(d, roots.real + q - 1), hn::LoadU(d, roots.imaginary + q - 1)};
  const Numbers<D> root1 = multiply(d, root, root), root2 = multiply(d, root1, root1), root3 = multiply(d, root1, root2);

  const Numbers<D> t0 = load(d, rows.row(0), q), t1 = multiply(d, load(d, rows.row(1), q), root1);
  const Numbers<D> t2 = multiply(d, load(d, rows.row(2), q), root2), t3 = multiply(d, load(d, rows.row(3), q), root3);
  const Numbers<D> a = add(d, t0, t2), b = subtract(d, t0, t2), c = add(d, t1, t3), e = turn(d, subtract(d, t1, t3));

  // The roots of the mirrored places are conjugate, up to quarter turns that the sums below contain.
  const Numbers<D> u0 = loadReversed(d, rows.row(0), p), u1 = multiplyConjugate(d, loadReversed(d, rows.row(1), p), root1);
  const Numbers<D> u2 = multiplyConjugate(d, loadReversed(d, rows.row(2), p), root2);
  const Numbers<D> u3 = multiplyConjugate(d, loadReversed(d, rows.row(3), p), root3);
  const Numbers<D> f = subtract(d, u0, u2), g = add(d, u0, u2), h = turn(d, subtract(d, u1, u3)), k = add(d, u1, u3);

  const Numbers<D> turned{hn::Neg(root.im), root.re};
  const auto eighth = hn::Set(d, std::numbers::sqrt2_v<float> / 2);
  const Numbers<D> turnedMore{hn::Mul(eighth, hn::Add(turned.re, turned.im)), hn::Mul(eighth, hn::Sub(turned.im, turned.re))};
  untangle(d, add(d, a, c), add(d, g, k), turned, false, spectrum, q, p + 3 * length);
  untangle(d, add(d, b, e), subtract(d, f, h), turnedMore, false, spectrum, q + length, p + 2 * length);
  untangle(d, subtract(d, a, c), subtract(d, g, k), turned, true, spectrum, q + 2 * length, p + length);
  untangle(d, subtract(d, b, e), add(d, f, h), turnedMore, true, spectrum, q + 3 * length, p);
}

HWY_INLINE void put(std::complex<float> number, const PackedSpectrum& spectrum, size_t index) {
  spectrum.real[index] = number.real();
  spectrum.imaginary[index] = number.imag();
}

/// The numbers at the quarters of the spectrum.
HWY_INLINE void joinStart(const QuarterRows& rows, const PackedSpectrum& spectrum) {
  const auto first = [&](size_t row) { return std::complex<float>(rows.row(row)[0], rows.row(row)[1]); };
  const auto turn90 = [](std::complex<float> z) { return std::complex<float>(z.imag(), -z.real()); };
  const std::complex<float> a = first(0) + first(2), b = first(0) - first(2), c = first(1) + first(3);
  const std::complex<float> e = turn90(first(1) - first(3)), zero = a + c, middle = a - c, quarter = b + e, last = b - e;
  put({2 * (zero.real() + zero.imag()), 2 * (zero.real() - zero.imag())}, spectrum, 0);
  put(2.0f * std::conj(middle), spectrum, 2 * rows.length);
  const float eighth = std::numbers::sqrt2_v<float> / 2;
  const std::complex<float> even = quarter + std::conj(last), odd = quarter - std::conj(last);
  const std::complex<float> product(eighth * (odd.real() - odd.imag()), eighth * (odd.real() + odd.imag()));
  put(even - product, spectrum, rows.length);
  put(std::conj(even + product), spectrum, 3 * rows.length);
}

template <class D>
HWY_INLINE void joinAll(D d, const QuarterRows& rows, const QuarterRoots& roots, const PackedSpectrum& spectrum) {
  for (size_t q = 1; q < rows.length / 2; q += hn::Lanes(d)) joinAt(d, q, rows, roots, spectrum);
}

void JoinQuarters(const QuarterRows& rows, const QuarterRoots& roots, const PackedSpectrum& spectrum) {
  joinStart(rows, spectrum);
  if (rows.length < 32) return joinAll(hn::CappedTag<float, 4>(), rows, roots, spectrum);
  joinAll(hn::CappedTag<float, 16>(), rows, roots, spectrum);
}

using Floats = hn::CappedTag<float, 16>;
using Pairs = hn::Repartition<uint64_t, Floats>;
using FloatVector = hn::Vec<Floats>;

/// Numbers 4n and 4n + 1 (low), 4n + 2 and 4n + 3 (high) in turn, for as many n as a vector has room for.
struct HalfSorted {
  FloatVector low, high;
};

/// The numbers at even places of two vectors.
HWY_INLINE FloatVector evenNumbers(FloatVector first, FloatVector second) {
  const Pairs pairs;
  return hn::BitCast(Floats(), hn::ConcatEven(pairs, hn::BitCast(pairs, second), hn::BitCast(pairs, first)));
}

HWY_INLINE FloatVector oddNumbers(FloatVector first, FloatVector second) {
  const Pairs pairs;
  return hn::BitCast(Floats(), hn::ConcatOdd(pairs, hn::BitCast(pairs, second), hn::BitCast(pairs, first)));
}

HWY_INLINE HalfSorted interleaved(const float* real, const float* imaginary) {
  const Floats floats;
  const FloatVector re = hn::LoadU(floats, real), im = hn::LoadU(floats, imaginary);
  return {hn::InterleaveLower(floats, re, im), hn::InterleaveUpper(floats, re, im)};
}

void QuarterSplitNumbers(const float* real, const float* imaginary, const QuarterRows& rows) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  for (size_t n = 0; n < rows.length; n += lanes / 2) {
    const HalfSorted first = interleaved(real + 4 * n, imaginary + 4 * n);
    const HalfSorted second = interleaved(real + 4 * n + lanes, imaginary + 4 * n + lanes);
    hn::Store(evenNumbers(first.low, second.low), floats, rows.row(0) + 2 * n);
    hn::Store(oddNumbers(first.low, second.low), floats, rows.row(1) + 2 * n);
    hn::Store(evenNumbers(first.high, second.high), floats, rows.row(2) + 2 * n);
    hn::Store(oddNumbers(first.high, second.high), floats, rows.row(3) + 2 * n);
  }
}

template <class Load>
HWY_INLINE void sortSamples(const QuarterRows& rows, Load load) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  for (size_t n = 0; n < rows.length; n += lanes / 2) {
    const FloatVector a = load(8 * n), b = load(8 * n + lanes), c = load(8 * n + 2 * lanes), d = load(8 * n + 3 * lanes);
    const FloatVector even0 = evenNumbers(a, b), even1 = evenNumbers(c, d), odd0 = oddNumbers(a, b), odd1 = oddNumbers(c, d);
    hn::Store(evenNumbers(even0, even1), floats, rows.row(0) + 2 * n);
    hn::Store(evenNumbers(odd0, odd1), floats, rows.row(1) + 2 * n);
    hn::Store(oddNumbers(even0, even1), floats, rows.row(2) + 2 * n);
    hn::Store(oddNumbers(odd0, odd1), floats, rows.row(3) + 2 * n);
  }
}

void QuarterSamples(const float* samples, const float* window, const QuarterRows& rows) {
  const Floats floats;
  if (window) {
    sortSamples(rows, [&](size_t place) { return hn::Mul(hn::LoadU(floats, samples + place), hn::LoadU(floats, window + place)); });
  } else {
    sortSamples(rows, [&](size_t place) { return hn::LoadU(floats, samples + place); });
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {

HWY_EXPORT(JoinQuarters);
HWY_EXPORT(QuarterSplitNumbers);
HWY_EXPORT(QuarterSamples);

void quarterSplitNumbers(const float* real, const float* imaginary, const QuarterRows& rows) {
  HWY_DYNAMIC_DISPATCH(QuarterSplitNumbers)(real, imaginary, rows);
}

void quarterSamples(const float* samples, const float* window, const QuarterRows& rows) {
  HWY_DYNAMIC_DISPATCH(QuarterSamples)(samples, window, rows);
}

void joinQuarters(const QuarterRows& rows, const QuarterRoots& roots, const PackedSpectrum& spectrum) {
  HWY_DYNAMIC_DISPATCH(JoinQuarters)(rows, roots, spectrum);
}

}  // namespace vidloom
#endif
