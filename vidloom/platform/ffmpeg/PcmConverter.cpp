#include "vidloom/platform/ffmpeg/PcmConverter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "vidloom/platform/ffmpeg/AvLog.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace vidloom {

namespace {

constexpr uint32_t maximumChannels = 8;

bool hasFlag(const AudioStreamBasicDescription& source, uint32_t flag) { return (source.mFormatFlags & flag) != 0; }

bool isPlanar(const AudioStreamBasicDescription& source) { return hasFlag(source, kAudioFormatFlagIsNonInterleaved); }

AVSampleFormat sampleFormatOf(const AudioStreamBasicDescription& source) {
  constexpr uint32_t shortBits = 16, longBits = 32, doubleBits = 64;
  if (source.mFormatID != kAudioFormatLinearPCM || hasFlag(source, kAudioFormatFlagIsBigEndian)) return AV_SAMPLE_FMT_NONE;
  AVSampleFormat format = AV_SAMPLE_FMT_NONE;
  if (hasFlag(source, kAudioFormatFlagIsFloat)) {
    format = source.mBitsPerChannel == longBits     ? AV_SAMPLE_FMT_FLT
             : source.mBitsPerChannel == doubleBits ? AV_SAMPLE_FMT_DBL
                                                    : AV_SAMPLE_FMT_NONE;
  } else if (hasFlag(source, kAudioFormatFlagIsSignedInteger)) {
    format = source.mBitsPerChannel == shortBits  ? AV_SAMPLE_FMT_S16
             : source.mBitsPerChannel == longBits ? AV_SAMPLE_FMT_S32
                                                  : AV_SAMPLE_FMT_NONE;
  }
  return isPlanar(source) ? av_get_planar_sample_fmt(format) : format;
}

std::string problemWith(const AudioStreamBasicDescription& source) {
  constexpr double maximumRate = 768000;
  if (sampleFormatOf(source) == AV_SAMPLE_FMT_NONE) return "the sound is not linear PCM of 16 or 32 bits or float";
  if (!(source.mSampleRate >= 1 && source.mSampleRate <= maximumRate)) return "the sound has no usable sample rate";
  if (source.mChannelsPerFrame < 1 || source.mChannelsPerFrame > maximumChannels) return "the sound has no usable channels";
  return {};
}

/// Unity where libswresample would turn down.
void setMatrix(SwrContext& resampler, int from, int to) {
  if (from != 1) return;
  std::vector<double> matrix(static_cast<size_t>(to), 1.0);
  swr_set_matrix(&resampler, matrix.data(), from);
}

}  // namespace

std::unique_ptr<PcmConverter> PcmConverter::open(const AudioStreamBasicDescription& source, double sampleRate, int channels,
                                                 std::string& why) {
  why = problemWith(source);
  if (!why.empty()) return nullptr;
  AVChannelLayout from{}, to{};
  av_channel_layout_default(&from, static_cast<int>(source.mChannelsPerFrame));
  av_channel_layout_default(&to, channels);
  SwrContext* made = nullptr;
  int status = swr_alloc_set_opts2(&made, &to, AV_SAMPLE_FMT_FLT, static_cast<int>(sampleRate), &from, sampleFormatOf(source),
                                   static_cast<int>(source.mSampleRate), 0, nullptr);
  SwrContextPointer resampler(made);
  if (status >= 0) setMatrix(*resampler, static_cast<int>(source.mChannelsPerFrame), channels);
  if (status >= 0) status = swr_init(resampler.get());
  if (status < 0) {
    why = "the sound cannot be converted: " + AvLog::words(status);
    return nullptr;
  }
  return std::make_unique<PcmConverter>(source, sampleRate, channels, std::move(resampler));
}

PcmConverter::PcmConverter(const AudioStreamBasicDescription& source, double sampleRate, int channels, SwrContextPointer resampler)
    : source_(source), sampleRate_(sampleRate), channels_(channels), resampler_(std::move(resampler)) {}

bool PcmConverter::fits(const AudioStreamBasicDescription& source) const {
  return source.mSampleRate == source_.mSampleRate && source.mFormatID == source_.mFormatID &&
         source.mFormatFlags == source_.mFormatFlags && source.mChannelsPerFrame == source_.mChannelsPerFrame &&
         source.mBitsPerChannel == source_.mBitsPerChannel;
}

int64_t PcmConverter::framesIn(size_t byteCount) const {
  return static_cast<int64_t>(byteCount / (source_.mChannelsPerFrame * source_.mBitsPerChannel / 8));
}

void PcmConverter::keepOutput(int64_t frameCount) {
  converted_.resize(static_cast<size_t>(frameCount) * static_cast<size_t>(channels_));
}

std::span<const float> PcmConverter::output(int64_t frameCount) const {
  return std::span(converted_).first(static_cast<size_t>(std::max<int64_t>(frameCount, 0)) * static_cast<size_t>(channels_));
}

std::span<const float> PcmConverter::convert(std::span<const uint8_t> bytes, int frameCount) {
  frameCount = static_cast<int>(std::min<int64_t>(frameCount, framesIn(bytes.size())));
  std::array<const uint8_t*, maximumChannels> planes{bytes.data()};
  const size_t planeBytes = static_cast<size_t>(frameCount) * source_.mBitsPerChannel / 8;
  for (size_t i = 1; isPlanar(source_) && i < source_.mChannelsPerFrame; ++i) planes[i] = planes[i - 1] + planeBytes;
  const int room = swr_get_out_samples(resampler_.get(), frameCount);
  keepOutput(std::max(room, 0));
  auto* target = reinterpret_cast<uint8_t*>(converted_.data());
  const int count = swr_convert(resampler_.get(), &target, room, planes.data(), frameCount);
  framesIn_ += frameCount;
  framesOut_ += std::max(count, 0);
  return output(count);
}

std::span<const float> PcmConverter::drain() {
  const auto wanted = static_cast<int64_t>(std::llround(static_cast<double>(framesIn_) * sampleRate_ / source_.mSampleRate));
  const int64_t missing = std::max<int64_t>(wanted - framesOut_, 0);
  converted_.clear();
  keepOutput(missing);
  if (missing > 0) {
    auto* target = reinterpret_cast<uint8_t*>(converted_.data());
    swr_convert(resampler_.get(), &target, static_cast<int>(missing), nullptr, 0);
  }
  framesIn_ = framesOut_ = 0;
  swr_init(resampler_.get());
  return output(missing);
}

}  // namespace vidloom
