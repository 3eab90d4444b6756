#include "vidloom/platform/ffmpeg/PacketEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidloom {

PacketEncoder::PacketEncoder(AvCodecContextPointer context, AvLogName logName)
    : context_(std::move(context)), logName_(std::move(logName)), packet_(av_packet_alloc()) {}

PacketEncoder::Result PacketEncoder::submit(const AVFrame* frame, const PacketSink& sink) {
  if (!packet_) return {AVERROR(ENOMEM), 0};
  int status = avcodec_send_frame(context_.get(), frame);
  if (status < 0) return {status, 0};
  while ((status = avcodec_receive_packet(context_.get(), packet_.get())) >= 0) {
    const AVPacket& packet = *packet_;
    const int errnoValue =
        sink({{packet.data, static_cast<size_t>(packet.size)}, packet.pts, packet.dts, (packet.flags & AV_PKT_FLAG_KEY) != 0});
    av_packet_unref(packet_.get());
    if (errnoValue != 0) return {0, errnoValue};
  }
  return {status == AVERROR(EAGAIN) || status == AVERROR_EOF ? 0 : status, 0};
}

}  // namespace vidloom
