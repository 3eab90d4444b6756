#include "vidloom/platform/ffmpeg/SampleKernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/ffmpeg/SampleKernels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using OneFloat = hn::CappedTag<float, 1>;

template <class D>
HWY_INLINE hn::Vec<hn::RebindToSigned<D>> scaled(D floats, const float* samples) {
  const auto value = hn::LoadU(floats, samples);
  const auto wide = hn::Mul(hn::IfThenElseZero(hn::Eq(value, value), value), hn::Set(floats, 32768.0f));
  return hn::NearestInt(hn::Min(hn::Max(wide, hn::Set(floats, -32768.0f)), hn::Set(floats, 32767.0f)));
}

template <class D>
HWY_INLINE void convert(D floats, const float* samples, int16_t* out) {
  const hn::Rebind<int16_t, D> shorts;
  hn::StoreU(hn::DemoteTo(shorts, scaled(floats, samples)), shorts, out);
}

/// A left and a right sample share one 32-bit lane.
template <class D>
HWY_INLINE void convertPair(D floats, const float* left, const float* right, int16_t* interleaved) {
  const hn::RebindToSigned<D> words;
  const hn::Repartition<int16_t, D> shorts;
  const auto low = hn::And(scaled(floats, left), hn::Set(words, 0xffff));
  hn::StoreU(hn::BitCast(shorts, hn::Or(low, hn::ShiftLeft<16>(scaled(floats, right)))), shorts, interleaved);
}

void FloatsTo16(const float* samples, int64_t count, int16_t* out) {
  const hn::ScalableTag<float> floats;
  const auto lanes = static_cast<int64_t>(hn::Lanes(floats));
  int64_t i = 0;
  for (; i + lanes <= count; i += lanes) convert(floats, samples + i, out + i);
  for (; i < count; ++i) convert(OneFloat(), samples + i, out + i);
}

void FloatPairTo16(const float* left, const float* right, int64_t count, int16_t* interleaved) {
  const hn::ScalableTag<float> floats;
  const auto lanes = static_cast<int64_t>(hn::Lanes(floats));
  int64_t i = 0;
  for (; i + lanes <= count; i += lanes) convertPair(floats, left + i, right + i, interleaved + 2 * i);
  for (; i < count; ++i) convertPair(OneFloat(), left + i, right + i, interleaved + 2 * i);
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {

HWY_EXPORT(FloatsTo16);
HWY_EXPORT(FloatPairTo16);

void floatsTo16(const float* samples, int64_t count, int16_t* out) { HWY_DYNAMIC_DISPATCH(FloatsTo16)(samples, count, out); }

void floatPairTo16(const float* left, const float* right, int64_t count, int16_t* interleaved) {
  HWY_DYNAMIC_DISPATCH(FloatPairTo16)(left, right, count, interleaved);
}

}  // namespace vidloom
#endif
