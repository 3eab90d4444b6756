#include "vidloom/platform/ffmpeg/AvPointers.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswresample/swresample.h>
}

namespace vidloom {

void AvDeleter::operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
void AvDeleter::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void AvDeleter::operator()(AVPacket* packet) const { av_packet_free(&packet); }
void AvDeleter::operator()(SwrContext* resampler) const { swr_free(&resampler); }

}  // namespace vidloom
