#include "vidloom/platform/ffmpeg/StreamInspector.h"

#include "vidloom/platform/ffmpeg/DecoderContext.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidloom {

namespace {

bool isInterlaced(int fieldOrder) { return fieldOrder != AV_FIELD_UNKNOWN && fieldOrder != AV_FIELD_PROGRESSIVE; }

/// What the headers leave open stays as the container has it.
void takeColors(int space, int primaries, int transfer, int range, StreamFacts& facts) {
  if (space != AVCOL_SPC_UNSPECIFIED) facts.colorSpace = space;
  if (primaries != AVCOL_PRI_UNSPECIFIED) facts.colorPrimaries = primaries;
  if (transfer != AVCOL_TRC_UNSPECIFIED) facts.colorTransfer = transfer;
  if (range != AVCOL_RANGE_UNSPECIFIED) facts.colorRange = range;
}

void takePicture(const AVCodecContext& context, StreamFacts& facts) {
  facts.width = context.width;
  facts.height = context.height;
  facts.pixelFormat = context.pix_fmt;
  takeColors(context.colorspace, context.color_primaries, context.color_trc, context.color_range, facts);
  if (context.sample_aspect_ratio.num > 0 && context.sample_aspect_ratio.den > 0) {
    facts.pixelAspectWidth = context.sample_aspect_ratio.num;
    facts.pixelAspectHeight = context.sample_aspect_ratio.den;
  }
  facts.interlaced = facts.interlaced || isInterlaced(context.field_order);
}

}  // namespace

StreamInspector::StreamInspector(const AVStream& stream, bool alpha, const MediaLimits& limits)
    : stream_(stream), alpha_(alpha), limits_(limits) {
  const AVCodecParameters& known = *stream.codecpar;
  facts_.width = known.width;
  facts_.height = known.height;
  facts_.pixelFormat = known.format;
  facts_.sampleRate = known.sample_rate;
  facts_.channels = known.ch_layout.nb_channels;
  takeColors(known.color_space, known.color_primaries, known.color_trc, known.color_range, facts_);
  facts_.interlaced = isInterlaced(known.field_order);
  // Of sound only AAC may come out at another rate than the container says.
  const bool isSound = known.codec_type == AVMEDIA_TYPE_AUDIO;
  done_ = isSound && known.codec_id != AV_CODEC_ID_AAC && facts_.sampleRate > 0 && facts_.channels > 0;
}

bool StreamInspector::offer(const AVPacket& packet) {
  if (done_) return true;
  if (stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) lookForFields(packet);
  done_ = (stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && readHeaders(packet)) || decodeOne(packet);
  return done_;
}

bool StreamInspector::readHeaders(const AVPacket& packet) {
  int avError = 0;
  DecoderSettings settings;
  settings.headersOnly = true;
  settings.alpha = alpha_;
  auto context = openDecoderContext(*stream_.codecpar, stream_.time_base.num, stream_.time_base.den, settings, limits_, avError);
  if (!context) return false;
  context->pix_fmt = AV_PIX_FMT_NONE;
  if (avcodec_send_packet(context.get(), &packet) < 0 || context->pix_fmt == AV_PIX_FMT_NONE || context->width <= 0) return false;
  takePicture(*context, facts_);
  return true;
}

bool StreamInspector::decodeOne(const AVPacket& packet) {
  int avError = 0;
  DecoderSettings settings;
  settings.alpha = alpha_;
  auto context = openDecoderContext(*stream_.codecpar, stream_.time_base.num, stream_.time_base.den, settings, limits_, avError);
  AvFramePointer frame(av_frame_alloc());
  if (!context || !frame || avcodec_send_packet(context.get(), &packet) < 0) return false;
  int result = avcodec_receive_frame(context.get(), frame.get());
  if (result == AVERROR(EAGAIN)) {
    avcodec_send_packet(context.get(), nullptr);
    result = avcodec_receive_frame(context.get(), frame.get());
  }
  if (result < 0) return false;
  if (context->codec_type == AVMEDIA_TYPE_VIDEO) {
    takePicture(*context, facts_);
    facts_.pixelFormat = frame->format;
    facts_.interlaced = facts_.interlaced || frame->interlaced_frame != 0;
  } else {
    facts_.sampleRate = frame->sample_rate;
    facts_.channels = frame->ch_layout.nb_channels;
  }
  return true;
}

void StreamInspector::lookForFields(const AVPacket& packet) {
  AvParserPointer parser(av_parser_init(stream_.codecpar->codec_id));
  AvCodecContextPointer context(avcodec_alloc_context3(nullptr));
  if (!parser || !context || avcodec_parameters_to_context(context.get(), stream_.codecpar) < 0) return;
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  uint8_t* parsed = nullptr;
  int parsedBytes = 0;
  av_parser_parse2(parser.get(), context.get(), &parsed, &parsedBytes, packet.data, packet.size, packet.pts, packet.dts,
                   packet.pos);
  facts_.interlaced = facts_.interlaced || isInterlaced(parser->field_order);
}

}  // namespace vidloom
