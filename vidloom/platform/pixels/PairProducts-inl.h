// Products of bytes, added up in pairs: the step that scaling is made of, which Highway 1.0 has no operation for. Included once for
// every instruction set.
#if defined(VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#undef VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#else
#define VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#endif

#include <algorithm>
#include <cstdint>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// pairProducts: weights[2 i] * samples[2 i] + weights[2 i + 1] * samples[2 i + 1], which must fit.
// packSigned: in every block of 16 bytes the lanes of that block of `low` and then those of `high`, saturated to bytes.
#if HWY_ARCH_X86 && HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

HWY_INLINE hn::Vec128<int16_t> pairProducts(hn::Vec128<uint8_t> weights, hn::Vec128<int8_t> samples) {
  return hn::Vec128<int16_t>{_mm_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec128<int8_t> packSigned(hn::Vec128<int16_t> low, hn::Vec128<int16_t> high) {
  return hn::Vec128<int8_t>{_mm_packs_epi16(low.raw, high.raw)};
}
#if HWY_TARGET <= HWY_AVX2
HWY_INLINE hn::Vec256<int16_t> pairProducts(hn::Vec256<uint8_t> weights, hn::Vec256<int8_t> samples) {
  return hn::Vec256<int16_t>{_mm256_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec256<int8_t> packSigned(hn::Vec256<int16_t> low, hn::Vec256<int16_t> high) {
  return hn::Vec256<int8_t>{_mm256_packs_epi16(low.raw, high.raw)};
}
#endif
#if HWY_TARGET <= HWY_AVX3
HWY_INLINE hn::Vec512<int16_t> pairProducts(hn::Vec512<uint8_t> weights, hn::Vec512<int8_t> samples) {
  return hn::Vec512<int16_t>{_mm512_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec512<int8_t> packSigned(hn::Vec512<int16_t> low, hn::Vec512<int16_t> high) {
  return hn::Vec512<int8_t>{_mm512_packs_epi16(low.raw, high.raw)};
}
#endif

#else

template <class W, class S>
HWY_INLINE auto pairProducts(W weights, S samples) {
  const hn::DFromV<S> bytes;
  const hn::Repartition<int16_t, decltype(bytes)> words;
  HWY_ALIGN int8_t sample[hn::MaxLanes(bytes)];
  HWY_ALIGN uint8_t weight[hn::MaxLanes(bytes)];
  HWY_ALIGN int16_t sum[hn::MaxLanes(words)];
  hn::Store(samples, bytes, sample);
  hn::Store(weights, hn::DFromV<W>(), weight);
  for (size_t i = 0; i < hn::Lanes(words); ++i) {
    sum[i] = static_cast<int16_t>(weight[2 * i] * sample[2 * i] + weight[2 * i + 1] * sample[2 * i + 1]);
  }
  return hn::Load(words, sum);
}

template <class V>
HWY_INLINE auto packSigned(V low, V high) {
  const hn::DFromV<V> words;
  const hn::Repartition<int8_t, decltype(words)> bytes;
  HWY_ALIGN int16_t from[2 * hn::MaxLanes(words)];
  HWY_ALIGN int8_t packed[hn::MaxLanes(bytes)];
  hn::Store(low, words, from);
  hn::Store(high, words, from + hn::Lanes(words));
  for (size_t i = 0; i < hn::Lanes(bytes); ++i) {
    const size_t block = i / 16, lane = i % 8, half = i / 8 % 2;
    packed[i] = static_cast<int8_t>(std::clamp<int>(from[half * hn::Lanes(words) + 8 * block + lane], -128, 127));
  }
  return hn::Load(bytes, packed);
}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#endif
