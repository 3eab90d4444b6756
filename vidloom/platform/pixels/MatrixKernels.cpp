#include "vidloom/platform/pixels/MatrixKernels.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/MatrixKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

HWY_INLINE SignedVector constant(double value) { return hn::Set(SignedWords(), static_cast<int16_t>(std::lround(value))); }

/// a * x + b * y for chroma x, y = 256 * (code - 128), |a|, |b| < 2, in 1/128 codes.
struct ChromaMix {
  ChromaMix(double fromCb, double fromCr) : cbPart(constant(fromCb * 16384)), crPart(constant(fromCr * 16384)) {}
  HWY_INLINE SignedVector operator()(SignedVector cb, SignedVector cr) const {
    return hn::SaturatedAdd(hn::MulFixedPoint15(cb, cbPart), hn::MulFixedPoint15(cr, crPart));
  }
  SignedVector cbPart, crPart;
};

HWY_INLINE SignedVector roundedCode(SignedVector in128ths) {
  const SignedVector half = hn::Set(SignedWords(), 64);
  return hn::Add(hn::ShiftRight<7>(hn::SaturatedAdd(in128ths, half)), hn::Set(SignedWords(), 128));
}

void TransformChromaRow(uint8_t* newCb, uint8_t* newCr, int16_t* lumaChange, const uint8_t* cb, const uint8_t* cr, int count,
                        const ColorTransform& transform) {
  const ChromaMix toCb(transform.cbFromCb, transform.cbFromCr), toCr(transform.crFromCb, transform.crFromCr);
  const ChromaMix toLuma(transform.lumaFromCb, transform.lumaFromCr);
  const SignedVector middle = hn::Set(SignedWords(), -32768);
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector oldCb = at.load(cb), oldCr = at.load(cr);
    const WordVector highHalf = hn::Set(Words(), 0xFF00);
    const auto centred = [&](WordVector shifted) HWY_ATTR { return hn::Xor(asSigned(shifted), middle); };
    const SignedVector evenCb = centred(hn::ShiftLeft<8>(evenBytes(oldCb)));
    const SignedVector evenCr = centred(hn::ShiftLeft<8>(evenBytes(oldCr)));
    const SignedVector oddCb = centred(hn::And(hn::BitCast(Words(), oldCb), highHalf));
    const SignedVector oddCr = centred(hn::And(hn::BitCast(Words(), oldCr), highHalf));
    at.store(joinClamped(roundedCode(toCb(evenCb, evenCr)), roundedCode(toCb(oddCb, oddCr))), newCb);
    at.store(joinClamped(roundedCode(toCr(evenCb, evenCr)), roundedCode(toCr(oddCb, oddCr))), newCr);
    HWY_ALIGN int16_t changes[2 * hn::MaxLanes(SignedWords())];
    hn::StoreInterleaved2(hn::ShiftRight<2>(toLuma(evenCb, evenCr)), hn::ShiftRight<2>(toLuma(oddCb, oddCr)), SignedWords(),
                          changes);
    const int stored = count - at.x < static_cast<int>(hn::Lanes(Bytes())) ? count - at.x : static_cast<int>(hn::Lanes(Bytes()));
    std::memcpy(lumaChange + at.x, changes, static_cast<size_t>(stored) * sizeof(int16_t));
  });
}

// Three parts of one, one part of the other.
HWY_INLINE SignedVector nearAndFar(SignedVector near, SignedVector far) {
  const SignedVector sum = hn::Add(hn::Add(near, hn::Add(near, near)), far);
  return hn::ShiftRight<2>(hn::Add(sum, hn::Set(SignedWords(), 2)));
}

void TransformLumaRow(uint8_t* newLuma, const uint8_t* luma, const int16_t* near, const int16_t* far, int count,
                      const ColorTransform& transform) {
  const SignedWords words;
  const double gain = transform.lumaGain;
  const SignedVector from = constant(transform.lumaFrom);
  const SignedVector to = constant(transform.lumaTo * 32 + 16);
  const SignedVector whole = hn::Set(words, static_cast<int16_t>(gain >= 1 ? -1 : 0));
  const SignedVector fraction = constant((gain >= 1 ? gain - 1 : gain) * 32768 - (gain == 1 ? 0 : 0.25));
  const auto scaled = [&](WordVector code) HWY_ATTR {
    const SignedVector v = hn::ShiftLeft<6>(hn::Sub(asSigned(code), from));
    return hn::Add(hn::And(v, whole), hn::MulFixedPoint15(v, fraction));
  };
  const auto finished = [&](SignedVector in64ths, SignedVector change)
                            HWY_ATTR { return hn::ShiftRight<5>(hn::Add(hn::Add(hn::ShiftRight<1>(in64ths), change), to)); };
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector codes = at.load(luma);
    const int x = at.x / 2;
    const auto column = [&](int shift)
                            HWY_ATTR { return nearAndFar(hn::LoadU(words, near + x + shift), hn::LoadU(words, far + x + shift)); };
    const SignedVector here = column(0);
    at.store(joinClamped(finished(scaled(evenBytes(codes)), nearAndFar(here, column(-1))),
                         finished(scaled(oddBytes(codes)), nearAndFar(here, column(1)))),
             newLuma);
  });
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(TransformChromaRow);
HWY_EXPORT(TransformLumaRow);
}  // namespace

void transformChromaRow(uint8_t* newCb, uint8_t* newCr, int16_t* lumaChange, const uint8_t* cb, const uint8_t* cr, int count,
                        const ColorTransform& transform) {
  HWY_DYNAMIC_DISPATCH(TransformChromaRow)(newCb, newCr, lumaChange, cb, cr, count, transform);
}

void transformLumaRow(uint8_t* newLuma, const uint8_t* luma, const int16_t* near, const int16_t* far, int count,
                      const ColorTransform& transform) {
  HWY_DYNAMIC_DISPATCH(TransformLumaRow)(newLuma, luma, near, far, count, transform);
}

}  // namespace vidloom
#endif
