#include "vidloom/platform/pixels/BlendKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/BlendKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

HWY_INLINE WordVector lerpHigh(WordVector under, WordVector over, WordVector weight) {
  const WordVector step = hn::Mul(hn::Sub(over, under), weight);
  return hn::Add(hn::Add(hn::ShiftLeft<8>(under), step), hn::Set(Words(), 128));
}

// (value * weight + 128) / 256 of both colour and alpha, then colour + under * (255 - alpha) / 255, in the high byte.
HWY_INLINE WordVector overHigh(WordVector under, WordVector color, WordVector alpha, WordVector weight) {
  const Words words;
  const WordVector half = hn::Set(words, 128);
  const WordVector taken = hn::ShiftRight<8>(hn::Add(hn::Mul(color, weight), half));
  const WordVector cover = hn::ShiftRight<8>(hn::Add(hn::Mul(alpha, weight), half));
  const WordVector rest = hn::Mul(under, hn::Sub(hn::Set(words, 255), cover));
  return hn::SaturatedAdd(divideBy255High(rest), hn::ShiftLeft<8>(taken));
}

void BlendRow(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, int count, int weight) {
  const WordVector w = hn::Set(Words(), static_cast<uint16_t>(weight));
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector under = at.load(beneath);
    const ByteVector over = at.load(source);
    at.store(joinHighBytes(lerpHigh(evenBytes(under), evenBytes(over), w), lerpHigh(oddBytes(under), oddBytes(over), w)),
             destination);
  });
}

void BlendRowWeighted(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint16_t* weights, int count) {
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector under = at.load(beneath);
    const ByteVector over = at.load(source);
    const WordVector low = at.loadWords(weights, 0);
    const WordVector high = at.loadWords(weights, 1);
    at.store(joinHighBytes(lerpHigh(evenBytes(under), evenBytes(over), hn::ConcatEven(Words(), high, low)),
                           lerpHigh(oddBytes(under), oddBytes(over), hn::ConcatOdd(Words(), high, low))),
             destination);
  });
}

// (over * cover + under * (255 - cover)) / 255 with cover = alpha * weight / 256.
HWY_INLINE WordVector straightHigh(WordVector under, WordVector over, WordVector alpha, WordVector weight) {
  const WordVector cover = hn::ShiftRight<8>(hn::Add(hn::Mul(alpha, weight), hn::Set(Words(), 128)));
  return divideBy255High(hn::Add(hn::Mul(over, cover), hn::Mul(under, hn::Sub(hn::Set(Words(), 255), cover))));
}

void BlendRowStraight(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha, int count,
                      int weight) {
  const WordVector w = hn::Set(Words(), static_cast<uint16_t>(weight));
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector under = at.load(beneath), over = at.load(source), cover = at.load(alpha);
    at.store(joinHighBytes(straightHigh(evenBytes(under), evenBytes(over), evenBytes(cover), w),
                           straightHigh(oddBytes(under), oddBytes(over), oddBytes(cover), w)),
             destination);
  });
}

void BlendRowPremultiplied(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha, int count,
                           int weight) {
  const WordVector w = hn::Set(Words(), static_cast<uint16_t>(weight));
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector under = at.load(beneath);
    const ByteVector over = at.load(source);
    const ByteVector cover = at.load(alpha);
    at.store(joinHighBytes(overHigh(evenBytes(under), evenBytes(over), evenBytes(cover), w),
                           overHigh(oddBytes(under), oddBytes(over), oddBytes(cover), w)),
             destination);
  });
}

void BlendRowPremultipliedWeighted(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha,
                                   const uint16_t* weights, int count) {
  forRow(count, [&](auto at) HWY_ATTR {
    const ByteVector under = at.load(beneath);
    const ByteVector over = at.load(source);
    const ByteVector cover = at.load(alpha);
    const WordVector low = at.loadWords(weights, 0);
    const WordVector high = at.loadWords(weights, 1);
    at.store(joinHighBytes(overHigh(evenBytes(under), evenBytes(over), evenBytes(cover), hn::ConcatEven(Words(), high, low)),
                           overHigh(oddBytes(under), oddBytes(over), oddBytes(cover), hn::ConcatOdd(Words(), high, low))),
             destination);
  });
}

void PremultiplyRow(uint8_t* destination, const uint8_t* source, const uint8_t* alpha, int count) {
  forRow(count, [&](auto at) HWY_ATTR { at.store(multiplied(at.load(source), at.load(alpha)), destination); });
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(BlendRow);
HWY_EXPORT(BlendRowWeighted);
HWY_EXPORT(BlendRowStraight);
HWY_EXPORT(BlendRowPremultiplied);
HWY_EXPORT(BlendRowPremultipliedWeighted);
HWY_EXPORT(PremultiplyRow);
}  // namespace

void blendRow(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, int count, int weight) {
  HWY_DYNAMIC_DISPATCH(BlendRow)(destination, beneath, source, count, weight);
}

void blendRowWeighted(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint16_t* weights, int count) {
  HWY_DYNAMIC_DISPATCH(BlendRowWeighted)(destination, beneath, source, weights, count);
}

void blendRowStraight(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha, int count,
                      int weight) {
  HWY_DYNAMIC_DISPATCH(BlendRowStraight)(destination, beneath, source, alpha, count, weight);
}

void blendRowPremultiplied(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha, int count,
                           int weight) {
  HWY_DYNAMIC_DISPATCH(BlendRowPremultiplied)(destination, beneath, source, alpha, count, weight);
}

void blendRowPremultipliedWeighted(uint8_t* destination, const uint8_t* beneath, const uint8_t* source, const uint8_t* alpha,
                                   const uint16_t* weights, int count) {
  HWY_DYNAMIC_DISPATCH(BlendRowPremultipliedWeighted)(destination, beneath, source, alpha, weights, count);
}

void premultiplyRow(uint8_t* destination, const uint8_t* source, const uint8_t* alpha, int count) {
  HWY_DYNAMIC_DISPATCH(PremultiplyRow)(destination, source, alpha, count);
}

}  // namespace vidloom
#endif
