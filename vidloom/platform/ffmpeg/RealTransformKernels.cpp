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
  Numbers<D> numbers;
  hn::LoadInterleaved2(d, row + 2 * index, numbers.re, numbers.im);
  return numbers;
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
  if (spectrum.powers) hn::StoreU(hn::MulAdd(numbers.re, numbers.re, hn::Mul(numbers.im, numbers.im)), d, spectrum.powers + index);
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
  if (spectrum.powers) spectrum.powers[index] = number.real() * number.real() + number.imag() * number.imag();
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
  if (rows.length >= 32) {
    joinAll(hn::CappedTag<float, 16>(), rows, roots, spectrum);
  } else {
    joinAll(hn::CappedTag<float, 4>(), rows, roots, spectrum);
  }
}

template <class D>
HWY_INLINE void quarterSplit(D d, const float* real, const float* imaginary, const QuarterRows& rows) {
  for (size_t n = 0; n < rows.length; n += hn::Lanes(d)) {
    hn::Vec<D> re0, re1, re2, re3, im0, im1, im2, im3;
    hn::LoadInterleaved4(d, real + 4 * n, re0, re1, re2, re3);
    hn::LoadInterleaved4(d, imaginary + 4 * n, im0, im1, im2, im3);
    hn::StoreInterleaved2(re0, im0, d, rows.row(0) + 2 * n);
    hn::StoreInterleaved2(re1, im1, d, rows.row(1) + 2 * n);
    hn::StoreInterleaved2(re2, im2, d, rows.row(2) + 2 * n);
    hn::StoreInterleaved2(re3, im3, d, rows.row(3) + 2 * n);
  }
}

void QuarterSplitNumbers(const float* real, const float* imaginary, const QuarterRows& rows) {
  if (rows.length >= 16) {
    quarterSplit(hn::CappedTag<float, 16>(), real, imaginary, rows);
  } else {
    quarterSplit(hn::CappedTag<float, 4>(), real, imaginary, rows);
  }
}

using Pairs = hn::CappedTag<uint64_t, 8>;
using PairFloats = hn::Repartition<float, Pairs>;

HWY_INLINE void storePairs(hn::Vec<Pairs> pairs, float* floats) {
  hn::StoreU(hn::BitCast(PairFloats(), pairs), PairFloats(), floats);
}

HWY_INLINE hn::Vec<Pairs> multiplyPairs(hn::Vec<Pairs> a, hn::Vec<Pairs> b) {
  const PairFloats floats;
  return hn::BitCast(Pairs(), hn::Mul(hn::BitCast(floats, a), hn::BitCast(floats, b)));
}

void QuarterSamples(const float* samples, const float* window, const QuarterRows& rows) {
  const Pairs pairs;
  const auto* in = reinterpret_cast<const uint64_t*>(samples);
  const auto* factors = reinterpret_cast<const uint64_t*>(window);
  for (size_t n = 0; n < rows.length; n += hn::Lanes(pairs)) {
    hn::Vec<Pairs> row0, row1, row2, row3;
    hn::LoadInterleaved4(pairs, in + 4 * n, row0, row1, row2, row3);
    if (factors) {
      hn::Vec<Pairs> factor0, factor1, factor2, factor3;
      hn::LoadInterleaved4(pairs, factors + 4 * n, factor0, factor1, factor2, factor3);
      row0 = multiplyPairs(row0, factor0);
      row1 = multiplyPairs(row1, factor1);
      row2 = multiplyPairs(row2, factor2);
      row3 = multiplyPairs(row3, factor3);
    }
    storePairs(row0, rows.row(0) + 2 * n);
    storePairs(row1, rows.row(1) + 2 * n);
    storePairs(row2, rows.row(2) + 2 * n);
    storePairs(row3, rows.row(3) + 2 * n);
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
