#include "vidloom/platform/pixels/ScaleKernels.h"

#include "vidloom/platform/pixels/HorizontalFilter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/ScaleKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

// One or two blocks of a horizontal filter at a time.
using WindowBytes = hn::CappedTag<uint8_t, 32>;
using WindowWords = hn::Repartition<uint16_t, WindowBytes>;
using PackedBytes = hn::Rebind<uint8_t, WindowWords>;

HWY_INLINE WordVector weighted(WordVector sum, WordVector samples, uint16_t weight) {
  return hn::Add(sum, hn::Mul(samples, hn::Set(Words(), weight)));
}

template <int kTaps>
HWY_INLINE void mixRowsOf(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int count) {
  forRow(count, [&](auto at) HWY_ATTR {
    WordVector even = hn::Set(Words(), 128);
    WordVector odd = even;
    for (int tap = 0; tap < kTaps; ++tap) {
      const ByteVector samples = at.load(rows[tap]);
      even = weighted(even, evenBytes(samples), weights[tap]);
      odd = weighted(odd, oddBytes(samples), weights[tap]);
    }
    at.store(joinHighBytes(even, odd), destination);
  });
}

void MixRows(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int taps, int count) {
  if (taps == 2) return mixRowsOf<2>(destination, rows, weights, count);
  mixRowsOf<3>(destination, rows, weights, count);
}

HWY_INLINE hn::Vec<WindowBytes> loadWindows(const uint8_t* row, const int32_t* windows) {
  const WindowBytes bytes;
  if constexpr (hn::MaxLanes(WindowBytes()) == 32) {
    const hn::Half<WindowBytes> half;
    return hn::Combine(bytes, hn::LoadU(half, row + windows[1]), hn::LoadU(half, row + windows[0]));
  } else {
    return hn::LoadU(bytes, row + windows[0]);
  }
}

enum class ThirdTap { none, inSameWindow, inItsOwn };

template <ThirdTap kThird>
HWY_INLINE hn::Vec<PackedBytes> scaleSamples(const uint8_t* row, const HorizontalFilter& filter, int x) {
  const WindowWords words;
  const WindowBytes bytes;
  const int block = x / HorizontalFilter::kBlock;
  const auto window = loadWindows(row, filter.windows() + block);
  const auto pairs = hn::BitCast(words, hn::TableLookupBytes(window, hn::LoadU(bytes, filter.picks() + 2 * x)));
  const auto left = hn::And(pairs, hn::Set(words, 0x00FF));
  const auto right = hn::ShiftRight<8>(pairs);
  auto sum = hn::Add(hn::Mul(left, hn::LoadU(words, filter.leftWeights() + x)), hn::Set(words, 128));
  sum = hn::Add(sum, hn::Mul(right, hn::LoadU(words, filter.rightWeights() + x)));
  if constexpr (kThird != ThirdTap::none) {
    const auto other = kThird == ThirdTap::inItsOwn ? loadWindows(row, filter.thirdWindows() + block) : window;
    const auto third = hn::TableLookupBytesOr0(other, hn::LoadU(bytes, filter.thirdPicks() + 2 * x));
    sum = hn::Add(sum, hn::Mul(hn::BitCast(words, third), hn::LoadU(words, filter.thirdWeights() + x)));
  }
  return hn::DemoteTo(PackedBytes(), hn::BitCast(hn::RebindToSigned<WindowWords>(), hn::ShiftRight<8>(sum)));
}

template <ThirdTap kThird>
HWY_INLINE void scaleRowIn(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter) {
  const int lanes = static_cast<int>(hn::Lanes(WindowWords()));
  const int count = filter.count();
  int x = 0;
  for (; x + lanes <= count; x += lanes) hn::StoreU(scaleSamples<kThird>(row, filter, x), PackedBytes(), destination + x);
  if (x == count) return;
  HWY_ALIGN uint8_t rest[hn::MaxLanes(PackedBytes())];
  hn::Store(scaleSamples<kThird>(row, filter, x), PackedBytes(), rest);
  std::memcpy(destination + x, rest, static_cast<size_t>(count - x));
}

void ScaleRow(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter) {
  if (filter.taps() == 2) return scaleRowIn<ThirdTap::none>(destination, row, filter);
  if (filter.sharesWindows()) return scaleRowIn<ThirdTap::inSameWindow>(destination, row, filter);
  scaleRowIn<ThirdTap::inItsOwn>(destination, row, filter);
}

HWY_INLINE WordVector sumOfPairs(ByteVector v) { return hn::Add(evenBytes(v), oddBytes(v)); }

void HalveRow(uint8_t* destination, const uint8_t* row, int count) {
  const Words words;
  const hn::Rebind<uint8_t, Words> packed;
  const int lanes = static_cast<int>(hn::Lanes(words));
  int x = 0;
  for (; x + lanes <= count; x += lanes) {
    const WordVector sum = hn::Add(sumOfPairs(hn::LoadU(Bytes(), row + 2 * x)), hn::Set(words, 1));
    hn::StoreU(hn::DemoteTo(packed, hn::BitCast(hn::RebindToSigned<Words>(), hn::ShiftRight<1>(sum))), packed, destination + x);
  }
  for (; x < count; ++x) destination[x] = static_cast<uint8_t>((row[2 * x] + row[2 * x + 1] + 1) >> 1);
}

void HalveRows(uint8_t* destination, const uint8_t* row, const uint8_t* below, int count) {
  const Words words;
  const hn::Rebind<uint8_t, Words> packed;
  const int lanes = static_cast<int>(hn::Lanes(words));
  int x = 0;
  for (; x + lanes <= count; x += lanes) {
    const WordVector both = hn::Add(sumOfPairs(hn::LoadU(Bytes(), row + 2 * x)), sumOfPairs(hn::LoadU(Bytes(), below + 2 * x)));
    const WordVector mean = hn::ShiftRight<2>(hn::Add(both, hn::Set(words, 2)));
    hn::StoreU(hn::DemoteTo(packed, hn::BitCast(hn::RebindToSigned<Words>(), mean)), packed, destination + x);
  }
  for (; x < count; ++x) {
    destination[x] = static_cast<uint8_t>((row[2 * x] + row[2 * x + 1] + below[2 * x] + below[2 * x + 1] + 2) >> 2);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(MixRows);
HWY_EXPORT(ScaleRow);
HWY_EXPORT(HalveRow);
HWY_EXPORT(HalveRows);
}  // namespace

void mixRows(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int taps, int count) {
  if (taps == 1) {
    std::memcpy(destination, rows[0], static_cast<size_t>(count));
    return;
  }
  HWY_DYNAMIC_DISPATCH(MixRows)(destination, rows, weights, taps, count);
}

void scaleRow(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter) {
  HWY_DYNAMIC_DISPATCH(ScaleRow)(destination, row, filter);
}

void halveRow(uint8_t* destination, const uint8_t* row, int count) { HWY_DYNAMIC_DISPATCH(HalveRow)(destination, row, count); }

void halveRows(uint8_t* destination, const uint8_t* row, const uint8_t* below, int count) {
  HWY_DYNAMIC_DISPATCH(HalveRows)(destination, row, below, count);
}

}  // namespace vidloom
#endif
