#include "vidloom/platform/pixels/RangeKernels.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/RangeKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

/// A RangeMap on vectors; kKeepsWhole: `whole` is 1.
template <bool kKeepsWhole>
struct RangeMapper {
  explicit RangeMapper(const RangeMap& map)
      : below(hn::Set(Bytes(), static_cast<uint8_t>(map.below))),
        fraction(hn::Set(Words(), map.fraction)),
        plus(hn::Set(Words(), map.plus)),
        minus(hn::Set(Words(), map.minus)) {}

  HWY_INLINE WordVector mapHigh(WordVector shifted) const {
    const WordVector part = hn::MulHigh(shifted, fraction);
    const WordVector sum = kKeepsWhole ? hn::SaturatedAdd(shifted, part) : part;
    return hn::SaturatedSub(hn::SaturatedAdd(sum, plus), minus);
  }
  HWY_INLINE ByteVector operator()(ByteVector codes) const {
    const WordVector v = hn::BitCast(Words(), hn::SaturatedSub(codes, below));
    return joinHighBytes(mapHigh(hn::ShiftLeft<8>(v)), mapHigh(hn::And(v, hn::Set(Words(), 0xFF00))));
  }

  ByteVector below;
  WordVector fraction, plus, minus;
};

struct NoMapper {
  HWY_INLINE ByteVector operator()(ByteVector codes) const { return codes; }
};

HWY_INLINE uint8_t mapCode(int code, const RangeMap& map) {
  const auto v = static_cast<uint32_t>(std::max(code - map.below, 0)) * 256;
  const uint32_t sum = std::min(v * map.whole + ((v * map.fraction) >> 16) + map.plus, 65535u);
  return static_cast<uint8_t>((sum - std::min<uint32_t>(sum, map.minus)) >> 8);
}

template <class Body>
HWY_INLINE void withMapper(const RangeMap& map, Body body) {
  if (map.fraction == 0) return body(NoMapper());
  if (map.whole != 0) return body(RangeMapper<true>(map));
  body(RangeMapper<false>(map));
}

void MapRow(uint8_t* destination, const uint8_t* source, int count, const RangeMap& map) {
  withMapper(
      map, [&](auto mapper) HWY_ATTR { forRow(count, [&](auto at) HWY_ATTR { at.store(mapper(at.load(source)), destination); }); });
}

void InterleaveRow(uint8_t* destination, const uint8_t* first, const uint8_t* second, int count, const RangeMap& map) {
  withMapper(map, [&](auto mapper) HWY_ATTR {
    const int lanes = static_cast<int>(hn::Lanes(Bytes()));
    int x = 0;
    for (; x + lanes <= count; x += lanes) {
      hn::StoreInterleaved2(mapper(hn::LoadU(Bytes(), first + x)), mapper(hn::LoadU(Bytes(), second + x)), Bytes(),
                            destination + 2 * x);
    }
    for (; x < count; ++x) {
      destination[2 * x] = mapCode(first[x], map);
      destination[2 * x + 1] = mapCode(second[x], map);
    }
  });
}

void DeinterleaveRow(uint8_t* first, uint8_t* second, const uint8_t* source, int count, const RangeMap& map) {
  withMapper(map, [&](auto mapper) HWY_ATTR {
    const Bytes bytes;
    const int lanes = static_cast<int>(hn::Lanes(bytes));
    int x = 0;
    for (; x + lanes <= count; x += lanes) {
      const ByteVector low = mapper(hn::LoadU(bytes, source + 2 * x));
      const ByteVector high = mapper(hn::LoadU(bytes, source + 2 * x + lanes));
      hn::StoreU(hn::ConcatEven(bytes, high, low), bytes, first + x);
      hn::StoreU(hn::ConcatOdd(bytes, high, low), bytes, second + x);
    }
    for (; x < count; ++x) {
      first[x] = mapCode(source[2 * x], map);
      second[x] = mapCode(source[2 * x + 1], map);
    }
  });
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {
HWY_EXPORT(MapRow);
HWY_EXPORT(InterleaveRow);
HWY_EXPORT(DeinterleaveRow);
}  // namespace

void mapRow(uint8_t* destination, const uint8_t* source, int count, const RangeMap& map) {
  if (map.fraction == 0) {
    std::memcpy(destination, source, static_cast<size_t>(count));
    return;
  }
  HWY_DYNAMIC_DISPATCH(MapRow)(destination, source, count, map);
}

void interleaveRow(uint8_t* destination, const uint8_t* first, const uint8_t* second, int count, const RangeMap& map) {
  HWY_DYNAMIC_DISPATCH(InterleaveRow)(destination, first, second, count, map);
}

void deinterleaveRow(uint8_t* first, uint8_t* second, const uint8_t* source, int count, const RangeMap& map) {
  HWY_DYNAMIC_DISPATCH(DeinterleaveRow)(first, second, source, count, map);
}

}  // namespace vidloom
#endif
