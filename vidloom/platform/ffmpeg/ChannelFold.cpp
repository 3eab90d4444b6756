#include "vidloom/platform/ffmpeg/ChannelFold.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "vidloom/platform/ffmpeg/SampleKernels.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

namespace vidloom {

namespace {

constexpr float kMinus3dB = 0.70710678f;
constexpr int kPiece = 512;  // samples

FoldGain gainOf(AVChannel channel) {
  switch (channel) {
    case AV_CHAN_FRONT_LEFT:
    case AV_CHAN_STEREO_LEFT:
      return {1, 0};
    case AV_CHAN_FRONT_RIGHT:
    case AV_CHAN_STEREO_RIGHT:
      return {0, 1};
    case AV_CHAN_LOW_FREQUENCY:
    case AV_CHAN_LOW_FREQUENCY_2:
      return {0, 0};
    case AV_CHAN_SIDE_LEFT:
    case AV_CHAN_BACK_LEFT:
    case AV_CHAN_FRONT_LEFT_OF_CENTER:
    case AV_CHAN_WIDE_LEFT:
    case AV_CHAN_SURROUND_DIRECT_LEFT:
    case AV_CHAN_TOP_FRONT_LEFT:
    case AV_CHAN_TOP_BACK_LEFT:
    case AV_CHAN_TOP_SIDE_LEFT:
      return {kMinus3dB, 0};
    case AV_CHAN_SIDE_RIGHT:
    case AV_CHAN_BACK_RIGHT:
    case AV_CHAN_FRONT_RIGHT_OF_CENTER:
    case AV_CHAN_WIDE_RIGHT:
    case AV_CHAN_SURROUND_DIRECT_RIGHT:
    case AV_CHAN_TOP_FRONT_RIGHT:
    case AV_CHAN_TOP_BACK_RIGHT:
    case AV_CHAN_TOP_SIDE_RIGHT:
      return {0, kMinus3dB};
    case AV_CHAN_FRONT_CENTER:
    case AV_CHAN_BACK_CENTER:
    case AV_CHAN_TOP_CENTER:
    case AV_CHAN_TOP_FRONT_CENTER:
    case AV_CHAN_TOP_BACK_CENTER:
      return {kMinus3dB, kMinus3dB};
    default:
      return {0, 0};
  }
}

float toFloat(uint8_t sample) { return static_cast<float>(sample - 128) * (1.0f / 128); }
float toFloat(int16_t sample) { return static_cast<float>(sample) * (1.0f / 32768); }
float toFloat(int32_t sample) { return static_cast<float>(sample) * (1.0f / 2147483648.0f); }
float toFloat(int64_t sample) { return static_cast<float>(static_cast<double>(sample) * 0x1p-63); }
float toFloat(float sample) { return sample; }
float toFloat(double sample) { return static_cast<float>(sample); }

int16_t to16(uint8_t sample) { return static_cast<int16_t>((sample - 128) * 256); }
int16_t to16(int16_t sample) { return sample; }
int16_t to16(int32_t sample) { return static_cast<int16_t>(sample >> 16); }
int16_t to16(int64_t sample) { return static_cast<int16_t>(sample >> 48); }
int16_t to16(double sample) {
  if (!(sample == sample)) return 0;
  return static_cast<int16_t>(std::lrint(std::clamp(sample * 32768.0, -32768.0, 32767.0)));
}

template <typename Sample>
void allTo16(const Sample* samples, int64_t count, int16_t* out) {
  for (int64_t i = 0; i < count; ++i) out[i] = to16(samples[i]);
}
void allTo16(const int16_t* samples, int64_t count, int16_t* out) { std::copy_n(samples, count, out); }
void allTo16(const float* samples, int64_t count, int16_t* out) { floatsTo16(samples, count, out); }

template <typename Sample>
void pairTo16(const Sample* left, const Sample* right, int64_t count, int16_t* interleaved) {
  for (int64_t i = 0; i < count; ++i) {
    interleaved[2 * i] = to16(left[i]);
    interleaved[2 * i + 1] = to16(right[i]);
  }
}
void pairTo16(const float* left, const float* right, int64_t count, int16_t* interleaved) {
  floatPairTo16(left, right, count, interleaved);
}

/// The samples of one channel: `step` apart.
template <typename Sample>
struct ChannelView {
  const Sample* samples;
  int step;
};

template <typename Sample>
ChannelView<Sample> channelOf(const AVFrame& frame, int channel, int offset) {
  const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
  const int channels = frame.ch_layout.nb_channels;
  if (planar) return {reinterpret_cast<const Sample*>(frame.extended_data[channel]) + offset, 1};
  return {reinterpret_cast<const Sample*>(frame.extended_data[0]) + ptrdiff_t{offset} * channels + channel, channels};
}

/// Calls `use` with a null pointer of the frame's sample type.
template <typename Use>
void withSampleType(const AVFrame& frame, const Use& use) {
  switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
    case AV_SAMPLE_FMT_U8:
      return use(static_cast<const uint8_t*>(nullptr));
    case AV_SAMPLE_FMT_S16:
      return use(static_cast<const int16_t*>(nullptr));
    case AV_SAMPLE_FMT_S32:
      return use(static_cast<const int32_t*>(nullptr));
    case AV_SAMPLE_FMT_S64:
      return use(static_cast<const int64_t*>(nullptr));
    case AV_SAMPLE_FMT_FLT:
      return use(static_cast<const float*>(nullptr));
    case AV_SAMPLE_FMT_DBL:
      return use(static_cast<const double*>(nullptr));
    default:
      return;
  }
}

template <typename Sample>
void addChannel(ChannelView<Sample> view, FoldGain gain, int count, float* stereo) {
  for (int i = 0; i < count; ++i) {
    const float value = toFloat(view.samples[ptrdiff_t{i} * view.step]);
    stereo[2 * i] += gain.left * value;
    stereo[2 * i + 1] += gain.right * value;
  }
}

/// One or two channels at unity are by far the most frequent.
template <typename Sample>
void copyPair(ChannelView<Sample> left, ChannelView<Sample> right, int count, float* stereo) {
  for (int i = 0; i < count; ++i) {
    stereo[2 * i] = toFloat(left.samples[ptrdiff_t{i} * left.step]);
    stereo[2 * i + 1] = toFloat(right.samples[ptrdiff_t{i} * right.step]);
  }
}

/// One channel among others, in pieces that stay in the processor's cache.
template <typename Sample>
void spread(ChannelView<Sample> view, int count, int16_t* out, int outStep) {
  std::array<Sample, kPiece> samples;
  std::array<int16_t, kPiece> converted;
  for (int at = 0; at < count; at += kPiece) {
    const int some = std::min(kPiece, count - at);
    for (int i = 0; i < some; ++i) samples[static_cast<size_t>(i)] = view.samples[ptrdiff_t{at + i} * view.step];
    allTo16(samples.data(), some, converted.data());
    for (int i = 0; i < some; ++i) out[ptrdiff_t{at + i} * outStep] = converted[static_cast<size_t>(i)];
  }
}

bool isPlainPair(const std::vector<FoldGain>& gains) {
  if (gains.size() == 1) return true;
  return gains.size() == 2 && gains[0].left == 1 && gains[0].right == 0 && gains[1].left == 0 && gains[1].right == 1;
}

}  // namespace

std::vector<FoldGain> foldGains(const AVChannelLayout& layout) {
  const int count = layout.nb_channels;
  if (count == 1) return {{1, 1}};
  AVChannelLayout named{};
  const bool isNamed = layout.order != AV_CHANNEL_ORDER_UNSPEC;
  if (!isNamed) av_channel_layout_default(&named, count);
  std::vector<FoldGain> gains;
  for (int i = 0; i < count; ++i) {
    const AVChannel channel = av_channel_layout_channel_from_index(isNamed ? &layout : &named, static_cast<unsigned>(i));
    gains.push_back(gainOf(channel));
  }
  av_channel_layout_uninit(&named);
  const bool isSilent = std::all_of(gains.begin(), gains.end(), [](const FoldGain& g) { return g.left == 0 && g.right == 0; });
  if (isSilent && count >= 2) {
    gains[0] = {1, 0};
    gains[1] = {0, 1};
  }
  return gains;
}

void ChannelFold::stereo(const AVFrame& frame, int offset, int count, float* interleavedStereo) {
  const AVChannelLayout& layout = frame.ch_layout;
  const uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
  if (gains_.empty() || mask != mask_ || layout.nb_channels != channels_) {
    gains_ = foldGains(layout);
    mask_ = mask;
    channels_ = layout.nb_channels;
  }
  withSampleType(frame, [&](const auto* type) {
    using Sample = std::remove_cv_t<std::remove_pointer_t<decltype(type)>>;
    if (isPlainPair(gains_)) {
      const auto left = channelOf<Sample>(frame, 0, offset);
      return copyPair(left, channels_ == 1 ? left : channelOf<Sample>(frame, 1, offset), count, interleavedStereo);
    }
    std::fill_n(interleavedStereo, ptrdiff_t{2} * count, 0.0f);
    for (int channel = 0; channel < channels_; ++channel) {
      const FoldGain gain = gains_[static_cast<size_t>(channel)];
      if (gain.left != 0 || gain.right != 0) addChannel(channelOf<Sample>(frame, channel, offset), gain, count, interleavedStereo);
    }
  });
}

void ChannelFold::native16(const AVFrame& frame, int offset, int count, int channels, int16_t* interleaved) {
  withSampleType(frame, [&](const auto* type) {
    using Sample = std::remove_cv_t<std::remove_pointer_t<decltype(type)>>;
    const int there = frame.ch_layout.nb_channels;
    const ChannelView<Sample> first = channelOf<Sample>(frame, 0, offset);
    if (there == channels && first.step == channels) return allTo16(first.samples, int64_t{count} * channels, interleaved);
    if (there == 2 && channels == 2)
      return pairTo16(first.samples, channelOf<Sample>(frame, 1, offset).samples, count, interleaved);
    for (int channel = 0; channel < channels; ++channel) {
      if (channel < there) {
        spread(channelOf<Sample>(frame, channel, offset), count, interleaved + channel, channels);
      } else {
        for (int i = 0; i < count; ++i) interleaved[ptrdiff_t{i} * channels + channel] = 0;
      }
    }
  });
}

}  // namespace vidloom
