#include "vidloom/platform/pixels/ScaleKernels.h"

#include <algorithm>

#include "vidloom/platform/pixels/HorizontalFilter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/ScaleKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/PairProducts-inl.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using SignedBytes = hn::RebindToSigned<Bytes>;
using SignedByteVector = hn::Vec<SignedBytes>;

// Samples less 128, so that sums of them times weights of 256 in all fit into 16 bits; and back.
HWY_INLINE SignedByteVector centred(ByteVector samples) {
  return hn::BitCast(SignedBytes(), hn::Xor(samples, hn::Set(Bytes(), 0x80)));
}
HWY_INLINE ByteVector uncentred(SignedByteVector samples) { return hn::Xor(hn::BitCast(Bytes(), samples), hn::Set(Bytes(), 0x80)); }

// 1/256 of both, rounded.
HWY_INLINE ByteVector finished(SignedVector low, SignedVector high) {
  const SignedVector per256 = hn::Set(SignedWords(), 128);
  return uncentred(packSigned(hn::MulFixedPoint15(low, per256), hn::MulFixedPoint15(high, per256)));
}

HWY_INLINE ByteVector weightPair(int left, int right) {
  return hn::BitCast(Bytes(), hn::Set(Words(), static_cast<uint16_t>(left | right << 8)));
}

template <int kTaps>
HWY_INLINE void mixRowsOf(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int count) {
  const SignedBytes signedBytes;
  const ByteVector pair = weightPair(weights[0], weights[1]);
  const ByteVector single = weightPair(kTaps == 3 ? weights[2] : 0, 0);
  const uint8_t *first = rows[0], *second = rows[1], *third = rows[kTaps - 1];
  forRow(count, [&](auto at) HWY_ATTR {
    const SignedByteVector one = centred(at.load(first)), two = centred(at.load(second));
    SignedVector low = pairProducts(pair, hn::InterleaveLower(signedBytes, one, two));
    SignedVector high = pairProducts(pair, hn::InterleaveUpper(signedBytes, one, two));
    if constexpr (kTaps == 3) {
      const SignedByteVector three = centred(at.load(third));
      low = hn::Add(low, pairProducts(single, hn::InterleaveLower(signedBytes, three, three)));
      high = hn::Add(high, pairProducts(single, hn::InterleaveUpper(signedBytes, three, three)));
    }
    at.store(finished(low, high), destination);
  });
}

void MixRows(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int taps, int count) {
  if (taps == 2) return mixRowsOf<2>(destination, rows, weights, count);
  mixRowsOf<3>(destination, rows, weights, count);
}

// As many windows as a vector has blocks of 16 bytes.
HWY_INLINE SignedByteVector loadWindows(const uint8_t* row, const int32_t* windows) {
  const Bytes bytes;
  if constexpr (hn::MaxLanes(Bytes()) == 64) {
    const hn::Half<Bytes> half;
    const hn::Half<decltype(half)> quarter;
    const auto low = hn::Combine(half, hn::LoadU(quarter, row + windows[1]), hn::LoadU(quarter, row + windows[0]));
    const auto high = hn::Combine(half, hn::LoadU(quarter, row + windows[3]), hn::LoadU(quarter, row + windows[2]));
    return centred(hn::Combine(bytes, high, low));
  } else if constexpr (hn::MaxLanes(Bytes()) == 32) {
    const hn::Half<Bytes> half;
    return centred(hn::Combine(bytes, hn::LoadU(half, row + windows[1]), hn::LoadU(half, row + windows[0])));
  } else {
    return centred(hn::LoadU(bytes, row + windows[0]));
  }
}

HWY_INLINE SignedVector weighted(SignedByteVector window, const uint8_t* picks, const uint8_t* weights) {
  return pairProducts(hn::LoadU(Bytes(), weights),
                      hn::TableLookupBytes(window, hn::LoadU(SignedBytes(), reinterpret_cast<const int8_t*>(picks))));
}

/// A filter's table where the compiler knows that no sample is stored.
struct TableView {
  explicit TableView(const HorizontalFilter::Table& table)
      : windows(table.windows.data()),
        thirdWindows(table.thirdWindows.data()),
        picks(table.picks.data()),
        thirdPicks(table.thirdPicks.data()),
        weights(table.weights.data()),
        thirdWeights(table.thirdWeights.data()) {}

  const int32_t *windows, *thirdWindows;
  const uint8_t *picks, *thirdPicks, *weights, *thirdWeights;
};

enum class Windows { one, onePerParity, onePerTap };

template <int kTaps, Windows kWindows>
HWY_INLINE SignedVector weightedSamples(const uint8_t* row, SignedByteVector window, const TableView& table, size_t x) {
  SignedVector sum = weighted(window, table.picks + x, table.weights + x);
  if constexpr (kTaps == 3) {
    const auto third =
        kWindows == Windows::onePerTap ? loadWindows(row, table.thirdWindows + x / HorizontalFilter::kWindow) : window;
    sum = hn::Add(sum, weighted(third, table.thirdPicks + x, table.thirdWeights + x));
  }
  return sum;
}

template <int kTaps, Windows kWindows>
HWY_INLINE void scaleRowIn(uint8_t* HWY_RESTRICT destination, const uint8_t* HWY_RESTRICT row, const HorizontalFilter& filter) {
  const TableView even(filter.even()), odd(filter.odd());
  const size_t lanes = hn::Lanes(Bytes());
  const auto count = static_cast<size_t>(filter.count());
  for (size_t x = 0; x < count; x += lanes) {
    const size_t windows = x / HorizontalFilter::kWindow;
    const SignedByteVector evenWindow = loadWindows(row, even.windows + windows);
    const SignedByteVector oddWindow = kWindows == Windows::one ? evenWindow : loadWindows(row, odd.windows + windows);
    const ByteVector samples = finished(weightedSamples<kTaps, kWindows>(row, evenWindow, even, x),
                                        weightedSamples<kTaps, kWindows>(row, oddWindow, odd, x));
    if (x + lanes <= count) {
      hn::StoreU(samples, Bytes(), destination + x);
    } else {
      PartialAccess{static_cast<int>(x), static_cast<int>(count - x)}.store(samples, destination);
    }
  }
}

template <int kTaps>
HWY_INLINE void scaleRowOf(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter) {
  if (filter.oddsShareWindows()) return scaleRowIn<kTaps, Windows::one>(destination, row, filter);
  if (filter.thirdsShareWindows()) return scaleRowIn<kTaps, Windows::onePerParity>(destination, row, filter);
  scaleRowIn<kTaps, Windows::onePerTap>(destination, row, filter);
}

void ScaleRow(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter) {
  if (filter.taps() == 2) return scaleRowOf<2>(destination, row, filter);
  scaleRowOf<3>(destination, row, filter);
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
