// Products of bytes, added up in pairs, and packing to bytes, which Highway 1.0 has no operations for. Included once for every
// instruction set.
#if defined(VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#undef VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#else
#define VIDLOOM_PIXELS_PAIR_PRODUCTS_INL_H_
#endif

#include <algorithm>
#include <cstdint>
#include <limits>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// pairProducts: weights[2 i] * samples[2 i] + weights[2 i + 1] * samples[2 i + 1], which must fit.
// packSigned: in every block of 16 bytes the lanes of that block of `low` and then those of `high`, saturated to bytes.
// packUnsigned: the same, saturated to 0..255.
#if HWY_ARCH_X86 && HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

HWY_INLINE hn::Vec128<int16_t> pairProducts(hn::Vec128<uint8_t> weights, hn::Vec128<int8_t> samples) {
  return hn::Vec128<int16_t>{_mm_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec128<int8_t> packSigned(hn::Vec128<int16_t> low, hn::Vec128<int16_t> high) {
  return hn::Vec128<int8_t>{_mm_packs_epi16(low.raw, high.raw)};
}
HWY_INLINE hn::Vec128<uint8_t> packUnsigned(hn::Vec128<int16_t> low, hn::Vec128<int16_t> high) {
  return hn::Vec128<uint8_t>{_mm_packus_epi16(low.raw, high.raw)};
}
#if HWY_TARGET <= HWY_AVX2
HWY_INLINE hn::Vec256<int16_t> pairProducts(hn::Vec256<uint8_t> weights, hn::Vec256<int8_t> samples) {
  return hn::Vec256<int16_t>{_mm256_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec256<int8_t> packSigned(hn::Vec256<int16_t> low, hn::Vec256<int16_t> high) {
  return hn::Vec256<int8_t>{_mm256_packs_epi16(low.raw, high.raw)};
}
HWY_INLINE hn::Vec256<uint8_t> packUnsigned(hn::Vec256<int16_t> low, hn::Vec256<int16_t> high) {
  return hn::Vec256<uint8_t>{_mm256_packus_epi16(low.raw, high.raw)};
}
#endif
#if HWY_TARGET <= HWY_AVX3
HWY_INLINE hn::Vec512<int16_t> pairProducts(hn::Vec512<uint8_t> weights, hn::Vec512<int8_t> samples) {
  return hn::Vec512<int16_t>{_mm512_maddubs_epi16(weights.raw, samples.raw)};
}
HWY_INLINE hn::Vec512<int8_t> packSigned(hn::Vec512<int16_t> low, hn::Vec512<int16_t> high) {
  return hn::Vec512<int8_t>{_mm512_packs_epi16(low.raw, high.raw)};
}
HWY_INLINE hn::Vec512<uint8_t> packUnsigned(hn::Vec512<int16_t> low, hn::Vec512<int16_t> high) {
  return hn::Vec512<uint8_t>{_mm512_packus_epi16(low.raw, high.raw)};
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

template <class T, class V>
HWY_INLINE auto packSaturated(V low, V high) {
  const hn::DFromV<V> words;
  const hn::Repartition<T, decltype(words)> bytes;
  HWY_ALIGN int16_t from[2 * hn::MaxLanes(words)];
  HWY_ALIGN T packed[hn::MaxLanes(bytes)];
  hn::Store(low, words, from);
  hn::Store(high, words, from + hn::Lanes(words));
  for (size_t i = 0; i < hn::Lanes(bytes); ++i) {
    const size_t block = i / 16, lane = i % 8, half = i / 8 % 2;
    const int value = from[half * hn::Lanes(words) + 8 * block + lane];
    packed[i] = static_cast<T>(std::clamp<int>(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  }
  return hn::Load(bytes, packed);
}

template <class V>
HWY_INLINE auto packSigned(V low, V high) {
  return packSaturated<int8_t>(low, high);
}
template <class V>
HWY_INLINE auto packUnsigned(V low, V high) {
  return packSaturated<uint8_t>(low, high);
}

#endif

// Four vectors of codes 0..255 to bytes, saturated. Packing works in blocks of 16 bytes, which leaves groups of four bytes in the
// wrong order.
template <class V>
HWY_INLINE hn::Vec<hn::ScalableTag<uint8_t>> packCodes(V a, V b, V c, V d) {
  const hn::ScalableTag<uint8_t> bytes;
  const hn::Repartition<int16_t, decltype(bytes)> words;
  const hn::Repartition<int32_t, decltype(bytes)> dwords;
  const auto packed = packUnsigned(hn::ReorderDemote2To(words, a, b), hn::ReorderDemote2To(words, c, d));
  constexpr size_t kGroups = hn::MaxLanes(dwords);
  if constexpr (kGroups == 4) {
    return packed;
  } else {
    HWY_ALIGN static constexpr int32_t kOrder8[] = {0, 4, 1, 5, 2, 6, 3, 7};
    HWY_ALIGN static constexpr int32_t kOrder16[] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    const auto order = hn::SetTableIndices(dwords, kGroups == 8 ? kOrder8 : kOrder16);
    return hn::BitCast(bytes, hn::TableLookupLanes(hn::BitCast(dwords, packed), order));
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#endif
