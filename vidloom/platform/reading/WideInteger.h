// Whole numbers wide enough for products of several media times.
#pragma once

#include <array>
#include <compare>
#include <cstdint>

namespace vidloom {

/// A signed whole number of 512 bits. Sums and products of what media times give (up to seven values of 64 bits) never overflow.
class WideInteger {
 public:
  constexpr WideInteger() = default;
  explicit WideInteger(int64_t value);

  bool isNegative() const { return (limbs_.back() >> 63) != 0; }
  bool isZero() const;
  WideInteger operator-() const;
  friend WideInteger operator+(const WideInteger& a, const WideInteger& b);
  friend WideInteger operator-(const WideInteger& a, const WideInteger& b) { return a + -b; }
  friend WideInteger operator*(const WideInteger& a, const WideInteger& b);
  friend bool operator==(const WideInteger&, const WideInteger&) = default;
  friend std::strong_ordering operator<=>(const WideInteger& a, const WideInteger& b);

  /// The greatest whole number at or below numerator / denominator (above zero); at the ends of the 64-bit range where it lies
  /// beyond them.
  static int64_t floorQuotient(const WideInteger& numerator, const WideInteger& denominator);
  double toDouble() const;

 private:
  static constexpr size_t kLimbs = 8;
  int bitLength() const;
  WideInteger shiftedLeft(int bits) const;
  void halve();

  std::array<uint64_t, kLimbs> limbs_{};  ///< two's complement, the lowest first
};

}  // namespace vidloom
