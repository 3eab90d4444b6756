#include "vidloom/platform/pixels/ColorTransform.h"

namespace vidloom {

CodeScale CodeScale::of(ColorMatrix matrix, bool fullRange) {
  const bool is601 = matrix == ColorMatrix::bt601;
  const double kr = is601 ? 0.299 : 0.2126, kb = is601 ? 0.114 : 0.0722;
  return fullRange ? CodeScale{kr, kb, 0, 255, 255} : CodeScale{kr, kb, 16, 219, 224};
}

// R - Y' = 2 (1 - kr) cr and B - Y' = 2 (1 - kb) cb, with cb and cr in -0.5..0.5; G - Y' follows from kr (R - Y') + kg (G - Y') +
// kb (B - Y') = 0. The other matrix's Y' is the old one plus its own weights times these differences.
ColorTransform ColorTransform::between(const PictureColor& from, const PictureColor& to) {
  const CodeScale source = CodeScale::of(from.matrix, from.fullRange);
  const CodeScale target = CodeScale::of(to.matrix, to.fullRange);
  const double redFromCr = 2 * (1 - source.kr), blueFromCb = 2 * (1 - source.kb);
  const double kg = 1 - source.kr - source.kb;
  const double greenFromCr = -source.kr * redFromCr / kg, greenFromCb = -source.kb * blueFromCb / kg;
  const double targetGreen = 1 - target.kr - target.kb;
  const double lumaFromCb = targetGreen * greenFromCb + target.kb * blueFromCb;
  const double lumaFromCr = targetGreen * greenFromCr + target.kr * redFromCr;
  const double chromaGain = target.chromaScale / source.chromaScale;
  const double perBlue = chromaGain / (2 * (1 - target.kb)), perRed = chromaGain / (2 * (1 - target.kr));
  return {target.lumaScale / source.lumaScale,
          source.lumaOffset,
          target.lumaOffset,
          lumaFromCb * target.lumaScale / source.chromaScale,
          lumaFromCr * target.lumaScale / source.chromaScale,
          (blueFromCb - lumaFromCb) * perBlue,
          -lumaFromCr * perBlue,
          -lumaFromCb * perRed,
          (redFromCr - lumaFromCr) * perRed};
}

}  // namespace vidloom
