#include "vidloom/platform/pixels/AffineKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/AffineKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using Dwords = hn::ScalableTag<int32_t>;
using DwordVector = hn::Vec<Dwords>;
using DwordHalves = hn::Repartition<int16_t, Dwords>;
using DwordBytes = hn::Rebind<uint8_t, Dwords>;

void PairRows(uint16_t* pairs, const uint8_t* row, const uint8_t* below, int count) {
  const int lanes = static_cast<int>(hn::Lanes(Bytes()));
  int x = 0;
  for (; x + lanes <= count; x += lanes) {
    hn::StoreInterleaved2(hn::LoadU(Bytes(), row + x), hn::LoadU(Bytes(), below + x), Bytes(),
                          reinterpret_cast<uint8_t*>(pairs + x));
  }
  for (; x < count; ++x) pairs[x] = static_cast<uint16_t>(row[x] | below[x] << 8);
}

// Four neighbours in each 32-bit lane (from low to high: here, below, right, right below) to their bilinear mix, 0..255.
HWY_INLINE DwordVector mixNeighbours(DwordVector neighbours, DwordVector u, DwordVector v) {
  const Dwords dwords;
  const hn::RebindToUnsigned<DwordHalves> words;
  const DwordHalves halves;
  const auto bytes = hn::BitCast(words, neighbours);
  const DwordVector fraction = hn::And(hn::ShiftRight<8>(v), hn::Set(dwords, 0xFF));
  const auto below = hn::BitCast(words, hn::Or(fraction, hn::ShiftLeft<16>(fraction)));
  const auto here = hn::And(bytes, hn::Set(words, 0x00FF));
  const auto difference = hn::Sub(hn::ShiftRight<8>(bytes), here);
  const auto columns = hn::ShiftRight<1>(hn::Add(hn::ShiftLeft<8>(here), hn::Mul(difference, below)));
  const DwordVector right = hn::And(hn::ShiftRight<8>(u), hn::Set(dwords, 0xFF));
  const DwordVector weights = hn::Or(hn::Sub(hn::Set(dwords, 256), right), hn::ShiftLeft<16>(right));
  DwordVector odd = hn::Zero(dwords);
  const DwordVector even =
      hn::ReorderWidenMulAccumulate(dwords, hn::BitCast(halves, columns), hn::BitCast(halves, weights), hn::Zero(dwords), odd);
  const DwordVector sum = hn::RearrangeToOddPlusEven(even, odd);
  return hn::ShiftRight<15>(hn::Add(sum, hn::Set(dwords, 1 << 14)));
}

HWY_INLINE DwordVector sampleAt(const PairedPlane& plane, DwordVector u, DwordVector v) {
  const Dwords dwords;
  const DwordVector zero = hn::Zero(dwords);
  const DwordVector x = hn::Min(hn::Max(u, zero), hn::Set(dwords, (plane.width - 1) << 16));
  const DwordVector y = hn::Min(hn::Max(v, zero), hn::Set(dwords, (plane.height - 1) << 16));
  const DwordVector index = hn::Add(hn::Mul(hn::ShiftRight<16>(y), hn::Set(dwords, plane.pairStride)), hn::ShiftRight<16>(x));
  const auto* base = reinterpret_cast<const int32_t*>(plane.pairs);
  return mixNeighbours(hn::GatherOffset(dwords, base, hn::ShiftLeft<1>(index)), x, y);
}

void SampleAlong(uint8_t* destination, int count, const PairedPlane& plane, FixedPoint start, FixedPoint step) {
  const Dwords dwords;
  const int lanes = static_cast<int>(hn::Lanes(dwords));
  // Fractions are cut to 8 bits: half of the last one rounds them.
  DwordVector u = hn::Add(hn::Set(dwords, start.u + 128), hn::Mul(hn::Iota(dwords, 0), hn::Set(dwords, step.u)));
  DwordVector v = hn::Add(hn::Set(dwords, start.v + 128), hn::Mul(hn::Iota(dwords, 0), hn::Set(dwords, step.v)));
  const DwordVector stepU = hn::Set(dwords, step.u * lanes);
  const DwordVector stepV = hn::Set(dwords, step.v * lanes);
  for (int x = 0; x < count; x += lanes) {
    const auto samples = hn::DemoteTo(DwordBytes(), sampleAt(plane, u, v));
    if (x + lanes <= count) {
      hn::StoreU(samples, DwordBytes(), destination + x);
    } else {
      HWY_ALIGN uint8_t rest[hn::MaxLanes(DwordBytes())];
      hn::Store(samples, DwordBytes(), rest);
      std::memcpy(destination + x, rest, static_cast<size_t>(count - x));
    }
    u = hn::Add(u, stepU);
    v = hn::Add(v, stepV);
  }
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
