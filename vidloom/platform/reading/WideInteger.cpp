#include "vidloom/platform/reading/WideInteger.h"

#include <bit>
#include <cmath>
#include <limits>

namespace vidloom {

namespace {

using Uint128 = unsigned __int128;
constexpr int kLimbBits = 64;

}  // namespace

WideInteger::WideInteger(int64_t value) {
  limbs_.fill(value < 0 ? ~uint64_t{0} : 0);
  limbs_[0] = static_cast<uint64_t>(value);
}

bool WideInteger::isZero() const { return *this == WideInteger{}; }

WideInteger WideInteger::operator-() const {
  WideInteger result;
  uint64_t carry = 1;
  for (size_t i = 0; i < kLimbs; ++i) {
    result.limbs_[i] = ~limbs_[i] + carry;
    carry = (carry != 0 && result.limbs_[i] == 0) ? 1 : 0;
  }
  return result;
}

WideInteger operator+(const WideInteger& a, const WideInteger& b) {
  WideInteger result;
  Uint128 carry = 0;
  for (size_t i = 0; i < WideInteger::kLimbs; ++i) {
    carry += Uint128{a.limbs_[i]} + b.limbs_[i];
    result.limbs_[i] = static_cast<uint64_t>(carry);
    carry >>= kLimbBits;
  }
  return result;
}

WideInteger operator*(const WideInteger& a, const WideInteger& b) {
  WideInteger result;
  for (size_t i = 0; i < WideInteger::kLimbs; ++i) {
    if (a.limbs_[i] == 0) continue;
    Uint128 carry = 0;
    for (size_t j = 0; i + j < WideInteger::kLimbs; ++j) {
      carry += Uint128{a.limbs_[i]} * b.limbs_[j] + result.limbs_[i + j];
      result.limbs_[i + j] = static_cast<uint64_t>(carry);
      carry >>= kLimbBits;
    }
  }
  return result;
}

std::strong_ordering operator<=>(const WideInteger& a, const WideInteger& b) {
  if (a.isNegative() != b.isNegative()) return a.isNegative() ? std::strong_ordering::less : std::strong_ordering::greater;
  for (size_t i = WideInteger::kLimbs; i-- > 0;) {
    if (a.limbs_[i] != b.limbs_[i]) return a.limbs_[i] <=> b.limbs_[i];
  }
  return std::strong_ordering::equal;
}

int WideInteger::bitLength() const {
  for (size_t i = kLimbs; i-- > 0;) {
    if (limbs_[i] != 0) return static_cast<int>(i + 1) * kLimbBits - std::countl_zero(limbs_[i]);
  }
  return 0;
}

WideInteger WideInteger::shiftedLeft(int bits) const {
  WideInteger result;
  const size_t whole = static_cast<size_t>(bits / kLimbBits);
  const int rest = bits % kLimbBits;
  for (size_t i = kLimbs; i-- > whole;) {
    result.limbs_[i] = limbs_[i - whole] << rest;
    if (rest != 0 && i > whole) result.limbs_[i] |= limbs_[i - whole - 1] >> (kLimbBits - rest);
  }
  return result;
}

void WideInteger::halve() {
  for (size_t i = 0; i < kLimbs; ++i) {
    limbs_[i] >>= 1;
    if (i + 1 < kLimbs) limbs_[i] |= limbs_[i + 1] << (kLimbBits - 1);
  }
}

int64_t WideInteger::floorQuotient(const WideInteger& numerator, const WideInteger& denominator) {
  const bool negative = numerator.isNegative();
  WideInteger rest = negative ? -numerator : numerator;
  int shift = rest.bitLength() - denominator.bitLength();
  if (shift > kLimbBits - 2) return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
  uint64_t quotient = 0;
  if (shift >= 0) {
    for (WideInteger part = denominator.shiftedLeft(shift); shift >= 0; --shift, part.halve()) {
      if (rest < part) continue;
      rest = rest - part;
      quotient |= uint64_t{1} << shift;
    }
  }
  if (!negative) return static_cast<int64_t>(quotient);
  return -static_cast<int64_t>(quotient) - (rest.isZero() ? 0 : 1);
}

double WideInteger::toDouble() const {
  if (isNegative()) return -(-*this).toDouble();
  double result = 0;
  for (size_t i = kLimbs; i-- > 0;) result = std::ldexp(result, kLimbBits) + static_cast<double>(limbs_[i]);
  return result;
}

}  // namespace vidloom
