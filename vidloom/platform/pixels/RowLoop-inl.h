// Loops over rows of bytes, a vector at a time, for the kernels: included once for every instruction set.
#if defined(VIDLOOM_PIXELS_ROW_LOOP_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VIDLOOM_PIXELS_ROW_LOOP_INL_H_
#undef VIDLOOM_PIXELS_ROW_LOOP_INL_H_
#else
#define VIDLOOM_PIXELS_ROW_LOOP_INL_H_
#endif

#include <cstdint>
#include <cstring>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::ScalableTag<uint8_t>;
using Words = hn::Repartition<uint16_t, Bytes>;
using WordVector = hn::Vec<Words>;
using ByteVector = hn::Vec<Bytes>;

/// A whole vector of bytes at position x of the rows.
struct WholeAccess {
  int x;

  ByteVector load(const uint8_t* row) const { return hn::LoadU(Bytes(), row + x); }
  WordVector loadWords(const uint16_t* row, int half) const {
    return hn::LoadU(Words(), row + x + half * static_cast<int>(hn::Lanes(Words())));
  }
  /// The bytes at x / 2 that go with each two bytes at x.
  WordVector loadHalved(const uint8_t* row) const {
    return hn::PromoteTo(Words(), hn::LoadU(hn::Rebind<uint8_t, Words>(), row + x / 2));
  }
  void store(ByteVector v, uint8_t* row) const { hn::StoreU(v, Bytes(), row + x); }
  void storeInterleaved(ByteVector a, ByteVector b, ByteVector c, ByteVector d, uint8_t* row) const {
    hn::StoreInterleaved4(a, b, c, d, Bytes(), row + 4 * x);
  }
};

/// The last `count` bytes of the rows, fewer than a vector; the others are zero and are not stored.
struct PartialAccess {
  int x;
  int count;

  ByteVector load(const uint8_t* row) const {
    HWY_ALIGN uint8_t bytes[hn::MaxLanes(Bytes())] = {};
    std::memcpy(bytes, row + x, static_cast<size_t>(count));
    return hn::Load(Bytes(), bytes);
  }
  WordVector loadWords(const uint16_t* row, int half) const {
    HWY_ALIGN uint16_t words[2 * hn::MaxLanes(Words())] = {};
    std::memcpy(words, row + x, static_cast<size_t>(count) * sizeof(uint16_t));
    return hn::Load(Words(), words + half * static_cast<int>(hn::Lanes(Words())));
  }
  WordVector loadHalved(const uint8_t* row) const {
    HWY_ALIGN uint8_t bytes[hn::MaxLanes(Bytes())] = {};
    std::memcpy(bytes, row + x / 2, static_cast<size_t>(count + 1) / 2);
    return hn::PromoteTo(Words(), hn::Load(hn::Rebind<uint8_t, Words>(), bytes));
  }
  void store(ByteVector v, uint8_t* row) const {
    HWY_ALIGN uint8_t bytes[hn::MaxLanes(Bytes())];
    hn::Store(v, Bytes(), bytes);
    std::memcpy(row + x, bytes, static_cast<size_t>(count));
  }
  void storeInterleaved(ByteVector a, ByteVector b, ByteVector c, ByteVector d, uint8_t* row) const {
    HWY_ALIGN uint8_t bytes[4 * hn::MaxLanes(Bytes())];
    hn::StoreInterleaved4(a, b, c, d, Bytes(), bytes);
    std::memcpy(row + 4 * x, bytes, 4 * static_cast<size_t>(count));
  }
};

/// Calls body(access) for every vector of rows of `count` bytes.
template <class Body>
HWY_INLINE void forRow(int count, Body body) {
  const int lanes = static_cast<int>(hn::Lanes(Bytes()));
  int x = 0;
  for (; x + lanes <= count; x += lanes) body(WholeAccess{x});
  if (x < count) body(PartialAccess{x, count - x});
}

// Bytes are worked on as the even and the odd ones of each 16-bit word, so nothing has to be widened or packed: results of both
// are left in the high halves of their words and joined.
HWY_INLINE WordVector evenBytes(ByteVector v) { return hn::And(hn::BitCast(Words(), v), hn::Set(Words(), 0x00FF)); }
HWY_INLINE WordVector oddBytes(ByteVector v) { return hn::ShiftRight<8>(hn::BitCast(Words(), v)); }
HWY_INLINE ByteVector joinHighBytes(WordVector even, WordVector odd) {
  return hn::OddEven(hn::BitCast(Bytes(), odd), hn::BitCast(Bytes(), hn::ShiftRight<8>(even)));
}

// x / 255, rounded and left in the high byte, for x up to 255 * 255.
HWY_INLINE WordVector divideBy255High(WordVector x) {
  const WordVector biased = hn::Add(x, hn::Set(Words(), 128));
  return hn::Add(biased, hn::ShiftRight<8>(biased));
}

HWY_INLINE ByteVector multiplied(ByteVector one, ByteVector other) {
  return joinHighBytes(divideBy255High(hn::Mul(evenBytes(one), evenBytes(other))),
                       divideBy255High(hn::Mul(oddBytes(one), oddBytes(other))));
}

using SignedWords = hn::RebindToSigned<Words>;
using SignedVector = hn::Vec<SignedWords>;

HWY_INLINE SignedVector asSigned(WordVector v) { return hn::BitCast(SignedWords(), v); }

// Values of even and odd bytes, clamped to 0..255.
HWY_INLINE ByteVector joinClamped(SignedVector even, SignedVector odd) {
  const SignedVector zero = hn::Zero(SignedWords()), top = hn::Set(SignedWords(), 255);
  const WordVector low = hn::BitCast(Words(), hn::Min(hn::Max(even, zero), top));
  const WordVector high = hn::BitCast(Words(), hn::Min(hn::Max(odd, zero), top));
  return hn::BitCast(Bytes(), hn::Or(low, hn::ShiftLeft<8>(high)));
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#endif
