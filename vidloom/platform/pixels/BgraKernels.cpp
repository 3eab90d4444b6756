#include "vidloom/platform/pixels/BgraKernels.h"

#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/BgraKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/PairProducts-inl.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using Pixels = hn::ScalableTag<int32_t>;
using PixelVector = hn::Vec<Pixels>;
using PixelWords = hn::Repartition<int16_t, Pixels>;
using PixelWordVector = hn::Vec<PixelWords>;

inline constexpr int kFractionBits = 15;
inline constexpr int kBytesPerPixel = 4;

// Weights of the words (B, R) and (G, A) of each pixel, one set for even pixels and one for odd ones.
struct PixelWeights {
  struct Set {
    double red, green, blue;
  };

  PixelWeights(const Set& even, const Set& odd) {
    HWY_ALIGN const int16_t blueRed[] = {fixed(even.blue), fixed(even.red), fixed(odd.blue), fixed(odd.red),
                                         fixed(even.blue), fixed(even.red), fixed(odd.blue), fixed(odd.red)};
    HWY_ALIGN const int16_t green[] = {fixed(even.green), 0, fixed(odd.green), 0, fixed(even.green), 0, fixed(odd.green), 0};
    forBlueRed = hn::LoadDup128(PixelWords(), blueRed);
    forGreen = hn::LoadDup128(PixelWords(), green);
  }

  static int16_t fixed(double weight) { return static_cast<int16_t>(std::floor(weight * (1 << kFractionBits) + 0.5)); }

  HWY_INLINE PixelVector operator()(PixelWordVector blueRed, PixelWordVector greenAlpha) const {
    const Pixels pixels;
    PixelVector odd = hn::Zero(pixels);
    PixelVector even = hn::ReorderWidenMulAccumulate(pixels, blueRed, forBlueRed, hn::Zero(pixels), odd);
    even = hn::ReorderWidenMulAccumulate(pixels, greenAlpha, forGreen, even, odd);
    return hn::RearrangeToOddPlusEven(even, odd);
  }

  PixelWordVector forBlueRed, forGreen;
};

HWY_INLINE PixelWordVector blueAndRed(PixelVector pixels) {
  return hn::BitCast(PixelWords(), hn::And(pixels, hn::Set(Pixels(), 0x00FF00FF)));
}
HWY_INLINE PixelWordVector greenAndAlpha(PixelVector pixels) {
  const hn::RebindToUnsigned<Pixels> unsignedPixels;
  const auto shifted = hn::ShiftRight<8>(hn::BitCast(unsignedPixels, pixels));
  return hn::BitCast(PixelWords(), hn::And(shifted, hn::Set(unsignedPixels, 0x00FF00FF)));
}

HWY_INLINE PixelVector loadPixels(const uint8_t* bgra, int quarter) {
  const int bytes = static_cast<int>(hn::Lanes(Bytes()));
  return hn::BitCast(Pixels(), hn::LoadU(Bytes(), bgra + quarter * bytes));
}

// Calls body(source, below, x, count) for as many pixels as a vector has bytes; the last ones may be a copy in which the last
// pixel is repeated.
template <class Body>
HWY_INLINE void forPixels(const uint8_t* bgra, const uint8_t* below, int count, Body body) {
  constexpr int kMaximumLanes = hn::MaxLanes(Bytes());
  const int lanes = static_cast<int>(hn::Lanes(Bytes()));
  int x = 0;
  for (; x + lanes <= count; x += lanes) body(bgra + kBytesPerPixel * x, below + kBytesPerPixel * x, x, lanes);
  if (x == count) return;
  uint8_t rest[2][kBytesPerPixel * kMaximumLanes];
  for (int lane = 0; lane < lanes; ++lane) {
    const int pixel = kBytesPerPixel * std::min(x + lane, count - 1);
    std::memcpy(rest[0] + kBytesPerPixel * lane, bgra + pixel, kBytesPerPixel);
    std::memcpy(rest[1] + kBytesPerPixel * lane, below + pixel, kBytesPerPixel);
  }
  body(rest[0], rest[1], x, count - x);
}

// Stores the codes that four vectors of pixels come to.
template <class CodesOf>
HWY_INLINE void storeCodes(CodesOf codesOf, uint8_t* destination, int x, int count) {
  const ByteVector codes = packCodes(codesOf(0), codesOf(1), codesOf(2), codesOf(3));
  if (count == static_cast<int>(hn::Lanes(Bytes()))) {
    WholeAccess{x}.store(codes, destination);
  } else {
    PartialAccess{x, count}.store(codes, destination);
  }
}

void LumaOfBGRA(uint8_t* luma, const uint8_t* bgra, int count, const CodeScale& scale) {
  const double gain = scale.lumaScale / 255;
  const PixelWeights::Set set{gain * scale.kr, gain * (1 - scale.kr - scale.kb), gain * scale.kb};
  const PixelWeights weights(set, set);
  const int bias = (static_cast<int>(scale.lumaOffset) << kFractionBits) + (1 << (kFractionBits - 1));
  const PixelVector offset = hn::Set(Pixels(), bias);
  forPixels(bgra, bgra, count, [&](const uint8_t* source, const uint8_t*, int x, int stored) HWY_ATTR {
    const auto codesOf = [&](int quarter) HWY_ATTR {
      const PixelVector pixels = loadPixels(source, quarter);
      return hn::ShiftRight<kFractionBits>(hn::Add(weights(blueAndRed(pixels), greenAndAlpha(pixels)), offset));
    };
    storeCodes(codesOf, luma, x, stored);
  });
}

// Even lanes give Cb, odd ones Cr.
HWY_INLINE PixelWeights chromaWeights(const CodeScale& scale) {
  const double kg = 1 - scale.kr - scale.kb;
  const double perBlue = scale.chromaScale / (255 * 2 * (1 - scale.kb));
  const double perRed = scale.chromaScale / (255 * 2 * (1 - scale.kr));
  return PixelWeights({-scale.kr * perBlue, -kg * perBlue, (1 - scale.kb) * perBlue},
                      {(1 - scale.kr) * perRed, -kg * perRed, -scale.kb * perRed});
}

// In both lanes of a pair of pixels the sum of the two and of the two below.
HWY_INLINE PixelWordVector sumOfFour(PixelWordVector here, PixelWordVector below) {
  const PixelVector sum = hn::BitCast(Pixels(), hn::Add(here, below));
  return hn::BitCast(PixelWords(), hn::Add(sum, hn::Shuffle2301(sum)));
}

void ChromaOfBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale) {
  constexpr int kShift = kFractionBits + 2;
  const PixelWeights weights = chromaWeights(scale);
  const PixelVector offset = hn::Set(Pixels(), (128 << kShift) + (1 << (kShift - 1)));
  forPixels(bgra, below, count, [&](const uint8_t* source, const uint8_t* next, int x, int stored) HWY_ATTR {
    const auto codesOf = [&](int quarter) HWY_ATTR {
      const PixelVector here = loadPixels(source, quarter), under = loadPixels(next, quarter);
      const PixelVector sum =
          weights(sumOfFour(blueAndRed(here), blueAndRed(under)), sumOfFour(greenAndAlpha(here), greenAndAlpha(under)));
      return hn::ShiftRight<kShift>(hn::Add(sum, offset));
    };
    storeCodes(codesOf, cbcr, x, (stored + 1) & ~1);
  });
}

void ChromaOfPremultipliedBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale) {
  const hn::RebindToFloat<Pixels> floats;
  const PixelWeights weights = chromaWeights(scale);
  const auto one = hn::Set(floats, 1.0f);
  forPixels(bgra, below, count, [&](const uint8_t* source, const uint8_t* next, int x, int stored) HWY_ATTR {
    const auto codesOf = [&](int quarter) HWY_ATTR {
      const PixelVector here = loadPixels(source, quarter), under = loadPixels(next, quarter);
      const PixelWordVector green = sumOfFour(greenAndAlpha(here), greenAndAlpha(under));
      const PixelVector sum = weights(sumOfFour(blueAndRed(here), blueAndRed(under)), green);
      const auto alpha = hn::ConvertTo(floats, hn::ShiftRight<16>(hn::BitCast(Pixels(), green)));
      const auto perAlpha = hn::Div(hn::Set(floats, 255.0f / (1 << kFractionBits)), hn::Max(alpha, one));
      return hn::NearestInt(hn::MulAdd(hn::ConvertTo(floats, sum), perAlpha, hn::Set(floats, 128.0f)));
    };
    storeCodes(codesOf, cbcr, x, (stored + 1) & ~1);
  });
}

/// factor * (code - 128) in 1/64, for |factor| < 4.
struct ChromaGain {
  explicit ChromaGain(double factor) : quarter(hn::Set(SignedWords(), static_cast<int16_t>(std::lround(factor * 8192)))) {}
  HWY_INLINE SignedVector operator()(SignedVector centred) const { return hn::MulFixedPoint15(centred, quarter); }
  SignedVector quarter;
};

void BgraOfPlanes(uint8_t* bgra, const PlaneRow& row, int count, const CodeScale& scale, bool premultiplies) {
  const SignedWords words;
  const double red = 2 * (1 - scale.kr) * 255 / scale.chromaScale, blue = 2 * (1 - scale.kb) * 255 / scale.chromaScale;
  const double kg = 1 - scale.kr - scale.kb;
  const ChromaGain redOfCr(red), greenOfCr(-red * scale.kr / kg), greenOfCb(-blue * scale.kb / kg), blueOfCb(blue);
  const SignedVector lumaGain = hn::Set(words, static_cast<int16_t>(std::lround((255 / scale.lumaScale - 1) * 32768)));
  const SignedVector black = hn::Set(words, static_cast<int16_t>(scale.lumaOffset));
  const SignedVector half = hn::Set(words, 32), middle = hn::Set(words, 128);
  const auto scaledLuma = [&](WordVector code) HWY_ATTR {
    const SignedVector v = hn::ShiftLeft<6>(hn::Sub(asSigned(code), black));
    return hn::Add(hn::Add(v, hn::MulFixedPoint15(v, lumaGain)), half);
  };
  const auto centred = [&](WordVector code) HWY_ATTR { return hn::ShiftLeft<8>(hn::Sub(asSigned(code), middle)); };
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector luma = at.load(row.luma);
    const SignedVector even = scaledLuma(evenBytes(luma)), odd = scaledLuma(oddBytes(luma));
    const SignedVector cb = centred(at.loadHalved(row.cb)), cr = centred(at.loadHalved(row.cr));
    const auto channel = [&](SignedVector chroma) HWY_ATTR {
      return joinClamped(hn::ShiftRight<6>(hn::SaturatedAdd(even, chroma)), hn::ShiftRight<6>(hn::SaturatedAdd(odd, chroma)));
    };
    ByteVector b = channel(blueOfCb(cb)), r = channel(redOfCr(cr));
    ByteVector g = channel(hn::Add(greenOfCb(cb), greenOfCr(cr)));
    const ByteVector alpha = row.alpha ? at.load(row.alpha) : hn::Set(Bytes(), 255);
    if (premultiplies) {
      b = multiplied(b, alpha);
      g = multiplied(g, alpha);
      r = multiplied(r, alpha);
    }
    at.storeInterleaved(b, g, r, alpha, bgra);
  });
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(LumaOfBGRA);
HWY_EXPORT(ChromaOfBGRA);
HWY_EXPORT(ChromaOfPremultipliedBGRA);
HWY_EXPORT(BgraOfPlanes);
}  // namespace

void lumaOfBGRA(uint8_t* luma, const uint8_t* bgra, int count, const CodeScale& scale) {
  HWY_DYNAMIC_DISPATCH(LumaOfBGRA)(luma, bgra, count, scale);
}

void chromaOfBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale) {
  HWY_DYNAMIC_DISPATCH(ChromaOfBGRA)(cbcr, bgra, below, count, scale);
}

void chromaOfPremultipliedBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale) {
  HWY_DYNAMIC_DISPATCH(ChromaOfPremultipliedBGRA)(cbcr, bgra, below, count, scale);
}

void bgraOfPlanes(uint8_t* bgra, const PlaneRow& row, int count, const CodeScale& scale, bool premultiplies) {
  HWY_DYNAMIC_DISPATCH(BgraOfPlanes)(bgra, row, count, scale, premultiplies);
}

}  // namespace vidloom
#endif
