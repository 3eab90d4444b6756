// Rows of samples laid over rows of samples.
#pragma once

#include <cstdint>

namespace vidloom {

/// destination = under + (source - under) * weight / 256, rounded; weight 0..256. Here and below `under` may be the destination.
void blendRow(uint8_t* destination, const uint8_t* under, const uint8_t* source, int count, int weight);

/// The same with a weight (0..256) for every sample.
void blendRowWeighted(uint8_t* destination, const uint8_t* under, const uint8_t* source, const uint16_t* weights, int count);

/// The same by alpha / 255 * weight / 256.
void blendRowStraight(uint8_t* destination, const uint8_t* under, const uint8_t* source, const uint8_t* alpha, int count,
                      int weight);

/// Lays premultiplied samples over: destination = source + under * (255 - alpha) / 255, source and alpha taken by weight / 256.
void blendRowPremultiplied(uint8_t* destination, const uint8_t* under, const uint8_t* source, const uint8_t* alpha, int count,
                           int weight);

/// The same with a weight (0..256) for every sample.
void blendRowPremultipliedWeighted(uint8_t* destination, const uint8_t* under, const uint8_t* source, const uint8_t* alpha,
                                   const uint16_t* weights, int count);

/// destination = source * alpha / 255, rounded.
void premultiplyRow(uint8_t* destination, const uint8_t* source, const uint8_t* alpha, int count);

}  // namespace vidloom
