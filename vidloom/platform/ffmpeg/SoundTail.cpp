#include "vidloom/platform/ffmpeg/SoundTail.h"

#include <algorithm>
#include <array>

#include "vidloom/platform/ffmpeg/DecoderContext.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidloom {

namespace {

/// Their packets are as long alone as after others.
constexpr std::array kIndependent{AV_CODEC_ID_AAC,  AV_CODEC_ID_MP3,  AV_CODEC_ID_MP2, AV_CODEC_ID_AC3,
                                  AV_CODEC_ID_EAC3, AV_CODEC_ID_FLAC, AV_CODEC_ID_ALAC};

}  // namespace

std::optional<int> framesInLastPacket(const AVStream& stream, const AVPacket& packet, double sampleRate,
                                      const MediaLimits& limits) {
  if (std::find(kIndependent.begin(), kIndependent.end(), stream.codecpar->codec_id) == kIndependent.end()) return std::nullopt;
  int avError = 0;
  auto context = openDecoderContext(*stream.codecpar, stream.time_base.num, stream.time_base.den, {}, limits, avError);
  AvFramePointer frame(av_frame_alloc());
  if (!context || !frame) return std::nullopt;
  context->log_level_offset = AV_LOG_TRACE;
  int64_t frames = 0;
  int rate = 0;
  if (avcodec_send_packet(context.get(), &packet) < 0) return 0;
  avcodec_send_packet(context.get(), nullptr);
  while (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
    frames += frame->nb_samples;
    rate = frame->sample_rate;
  }
  if (frames > 0 && rate != static_cast<int>(sampleRate)) return std::nullopt;  // what doubles the rate stands in an earlier packet
  return static_cast<int>(std::min<int64_t>(frames, 1 << 24));
}

}  // namespace vidloom
