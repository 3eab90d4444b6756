#include "vidloom/platform/pixels/AffineKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/AffineKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/PairProducts-inl.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using Dwords = hn::ScalableTag<int32_t>;
using DwordVector = hn::Vec<Dwords>;
using DwordHalves = hn::Repartition<int16_t, Dwords>;
inline constexpr int kWidestNarrowStride = 16383;

void PairRows(uint16_t* pairs, const uint8_t* row, const uint8_t* below, int count) {
  const int lanes = static_cast<int>(hn::Lanes(Bytes()));
  int x = 0;
  for (; x + lanes <= count; x += lanes) {
    hn::StoreInterleaved2(hn::LoadU(Bytes(), row + x), hn::LoadU(Bytes(), below + x), Bytes(),
                          reinterpret_cast<uint8_t*>(pairs + x));
  }
  for (; x < count; ++x) pairs[x] = static_cast<uint16_t>(row[x] | below[x] << 8);
}

using UnsignedHalves = hn::RebindToUnsigned<DwordHalves>;

// Sums of the products of the two halves of each lane.
HWY_INLINE DwordVector sumOfProducts(hn::Vec<DwordHalves> one, hn::Vec<DwordHalves> other) {
  const Dwords dwords;
  DwordVector odd = hn::Zero(dwords);
  const DwordVector even = hn::ReorderWidenMulAccumulate(dwords, one, other, hn::Zero(dwords), odd);
  return hn::RearrangeToOddPlusEven(even, odd);
}

// The second byte of each lane in the low bytes of both its halves.
HWY_INLINE hn::Vec<UnsignedHalves> fractionTwice(DwordVector position) {
  const hn::Repartition<uint8_t, Dwords> bytes;
  HWY_ALIGN static constexpr uint8_t kPicks[] = {1, 0x80, 1, 0x80, 5, 0x80, 5, 0x80, 9, 0x80, 9, 0x80, 13, 0x80, 13, 0x80};
  const auto picks = hn::LoadDup128(bytes, kPicks);
  return hn::BitCast(UnsignedHalves(), hn::TableLookupBytesOr0(hn::BitCast(bytes, position), picks));
}

// Four neighbours in each 32-bit lane (from low to high: here, below, right, right below) to their bilinear mix, 0..255.
HWY_INLINE DwordVector mixNeighbours(DwordVector neighbours, DwordVector u, DwordVector v) {
  const Dwords dwords;
  const UnsignedHalves words;
  const DwordHalves halves;
  const auto bytes = hn::BitCast(words, neighbours);
  const auto here = hn::And(bytes, hn::Set(words, 0x00FF));
  const auto difference = hn::Sub(hn::ShiftRight<8>(bytes), here);
  const auto columns = hn::ShiftRight<1>(hn::Add(hn::ShiftLeft<8>(here), hn::Mul(difference, fractionTwice(v))));
  // (256 - right, right) is (right, right), the first one complemented, plus (257, 0).
  const auto complemented = hn::Xor(fractionTwice(u), hn::BitCast(words, hn::Set(dwords, 0xFFFF)));
  const auto weights = hn::Add(complemented, hn::BitCast(words, hn::Set(dwords, 257)));
  const DwordVector sum = sumOfProducts(hn::BitCast(halves, columns), hn::BitCast(halves, weights));
  return hn::ShiftRight<15>(hn::Add(sum, hn::Set(dwords, 1 << 14)));
}

// Byte offsets of the pairs at a position. Strides that fit into 16 bits take one multiplication and one addition at once.
template <bool kNarrow>
HWY_INLINE DwordVector offsetAt(const PairedPlane& plane, DwordVector u, DwordVector v) {
  const Dwords dwords;
  constexpr int kPairBytes = sizeof(uint16_t);
  const DwordVector column = hn::ShiftRight<16>(u);
  if constexpr (kNarrow) {
    const DwordHalves halves;
    const DwordVector high = hn::Set(dwords, static_cast<int32_t>(0xFFFF0000));
    const auto both = hn::BitCast(halves, hn::Or(column, hn::And(v, high)));
    return sumOfProducts(both, hn::BitCast(halves, hn::Set(dwords, kPairBytes | plane.pairStride * kPairBytes << 16)));
  } else {
    const DwordVector row = hn::Mul(hn::ShiftRight<16>(v), hn::Set(dwords, plane.pairStride));
    return hn::ShiftLeft<1>(hn::Add(row, column));
  }
}

/// Steps through the plane, a vector of samples at a time.
template <bool kClamps, bool kNarrow>
class Walker {
 public:
  Walker(const PairedPlane& plane, FixedPoint start, FixedPoint step) : plane_(plane) {
    const Dwords dwords;
    const auto lanes = static_cast<int32_t>(hn::Lanes(dwords));
    u_ = hn::Add(hn::Set(dwords, start.u), hn::Mul(hn::Iota(dwords, 0), hn::Set(dwords, step.u)));
    v_ = hn::Add(hn::Set(dwords, start.v), hn::Mul(hn::Iota(dwords, 0), hn::Set(dwords, step.v)));
    stepU_ = hn::Mul(hn::Set(dwords, step.u), hn::Set(dwords, lanes));
    stepV_ = hn::Mul(hn::Set(dwords, step.v), hn::Set(dwords, lanes));
  }

  HWY_INLINE DwordVector next() {
    const Dwords dwords;
    DwordVector u = u_, v = v_;
    if constexpr (kClamps) {
      const DwordVector zero = hn::Zero(dwords);
      u = hn::Min(hn::Max(u, zero), hn::Set(dwords, (plane_.width - 1) << 16));
      v = hn::Min(hn::Max(v, zero), hn::Set(dwords, (plane_.height - 1) << 16));
    }
    u_ = hn::Add(u_, stepU_);
    v_ = hn::Add(v_, stepV_);
    const auto* base = reinterpret_cast<const int32_t*>(plane_.pairs);
    return mixNeighbours(hn::GatherOffset(dwords, base, offsetAt<kNarrow>(plane_, u, v)), u, v);
  }

 private:
  PairedPlane plane_;
  DwordVector u_, v_, stepU_, stepV_;
};

template <bool kClamps, bool kNarrow>
HWY_INLINE void sampleRun(uint8_t* destination, int count, const PairedPlane& plane, FixedPoint start, FixedPoint step) {
  Walker<kClamps, kNarrow> walker(plane, start, step);
  forRow(count, [&](auto at) HWY_ATTR {
    const DwordVector a = walker.next(), b = walker.next(), c = walker.next(), d = walker.next();
    at.store(packCodes(a, b, c, d), destination);
  });
}

HWY_INLINE bool isInside(int64_t u, int64_t v, const PairedPlane& plane) {
  return u >= 0 && v >= 0 && u <= (plane.width - 1) << 16 && v <= (plane.height - 1) << 16;
}

void SampleAlong(uint8_t* destination, int count, const PairedPlane& plane, FixedPoint start, FixedPoint step) {
  const int lanes = static_cast<int>(hn::Lanes(Bytes()));
  const int last = (count + lanes - 1) / lanes * lanes - 1;
  // Fractions are cut to 8 bits: half of the last one rounds them.
  const FixedPoint from{start.u + 128, start.v + 128};
  const int64_t toU = from.u + int64_t{last} * step.u, toV = from.v + int64_t{last} * step.v;
  const bool inside = isInside(from.u, from.v, plane) && isInside(toU, toV, plane);
  if (plane.pairStride > kWidestNarrowStride) return sampleRun<true, false>(destination, count, plane, from, step);
  if (inside) return sampleRun<false, true>(destination, count, plane, from, step);
  sampleRun<true, true>(destination, count, plane, from, step);
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(PairRows);
HWY_EXPORT(SampleAlong);
}  // namespace

void pairRows(uint16_t* pairs, const uint8_t* row, const uint8_t* below, int count) {
  HWY_DYNAMIC_DISPATCH(PairRows)(pairs, row, below, count);
}

void sampleAlong(uint8_t* destination, int count, const PairedPlane& plane, FixedPoint start, FixedPoint step) {
  HWY_DYNAMIC_DISPATCH(SampleAlong)(destination, count, plane, start, step);
}

}  // namespace vidloom
#endif
