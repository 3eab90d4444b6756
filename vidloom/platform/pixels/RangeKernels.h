// Rows between limited and full range, planar and bi-planar.
#pragma once

#include <cstdint>

namespace vidloom {

/// A change of range, exactly rounded: code = clamp(floor(x + 0.5)). It works on v = max(code - below, 0) in 16-bit steps:
/// (256 * whole * v + 256 * v * fraction / 65536 + plus - minus) / 256, saturating.
struct RangeMap {
  uint16_t below = 0;
  uint16_t whole = 0;
  uint16_t fraction = 0;
  uint16_t plus = 0;
  uint16_t minus = 0;
};

inline constexpr RangeMap kSameRange{0, 1, 0, 0, 0};
inline constexpr RangeMap kLimitedToFullLuma{16, 1, 10773, 128, 0};
inline constexpr RangeMap kLimitedToFullChroma{15, 1, 9070, 0, 35};
inline constexpr RangeMap kFullToLimitedLuma{0, 0, 56283, 4224, 0};
inline constexpr RangeMap kFullToLimitedChroma{0, 0, 57569, 4112, 0};

void mapRow(uint8_t* destination, const uint8_t* source, int count, const RangeMap& map);
/// `count` samples of each of the two rows, mapped, by turns.
void interleaveRow(uint8_t* destination, const uint8_t* first, const uint8_t* second, int count, const RangeMap& map);
/// `count` samples for each of the two rows.
void deinterleaveRow(uint8_t* first, uint8_t* second, const uint8_t* source, int count, const RangeMap& map);

}  // namespace vidloom
