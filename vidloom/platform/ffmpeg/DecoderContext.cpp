#include "vidloom/platform/ffmpeg/DecoderContext.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidloom {

namespace {

const AVCodec* decoderFor(AVCodecID codec, bool alpha) {
  if (alpha && codec == AV_CODEC_ID_VP9) return avcodec_find_decoder_by_name("libvpx-vp9");
  if (alpha && codec == AV_CODEC_ID_VP8) return avcodec_find_decoder_by_name("libvpx");
  return avcodec_find_decoder(codec);
}

/// Refusing the memory for the picture ends its decoding when everything that the headers say is known.
int noteFormat(AVCodecContext* context, AVFrame* frame, int) {
  *static_cast<int*>(context->opaque) = frame->format;
  return AVERROR_EXTERNAL;
}

}  // namespace

AvCodecContextPointer openDecoderContext(const AVCodecParameters& parameters, int timeBaseNumerator, int timeBaseDenominator,
                                         const DecoderSettings& settings, const MediaLimits& limits, int& avError) {
  const AVCodec* codec = decoderFor(parameters.codec_id, settings.alpha);
  avError = codec ? 0 : AVERROR_DECODER_NOT_FOUND;
  if (!codec) return nullptr;
  AvCodecContextPointer context(avcodec_alloc_context3(codec));
  avError = context ? avcodec_parameters_to_context(context.get(), &parameters) : AVERROR(ENOMEM);
  if (avError < 0) return nullptr;
  context->pkt_timebase = {timeBaseNumerator, timeBaseDenominator};
  context->thread_count = settings.threads;
  context->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
  context->max_pixels = limits.maxPixels;
  context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;  // else some decoders stop at the first such picture at the end
  context->flags |= AV_CODEC_FLAG_UNALIGNED;       // crops exactly, whatever that does to the alignment of rows
  context->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;   // samples are counted by us
  context->has_b_frames = std::max(context->has_b_frames, settings.reorderDepth);
  if (settings.pixelFormatOnly != nullptr) {
    context->get_buffer2 = noteFormat;
    context->opaque = settings.pixelFormatOnly;
    context->log_level_offset = AV_LOG_TRACE;
  }
  avError = avcodec_open2(context.get(), codec, nullptr);
  return avError < 0 ? nullptr : std::move(context);
}

}  // namespace vidloom
