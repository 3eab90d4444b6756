#include "vidloom/platform/ffmpeg/StreamInspector.h"

#include "vidloom/platform/ffmpeg/DecoderContext.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidloom {

namespace {

constexpr int kMostAttempts = 3;

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
  const bool isSound = known.codec_type == AVMEDIA_TYPE_AUDIO;
  const bool isUncompressed = av_get_exact_bits_per_sample(known.codec_id) > 0;
  done_ = isSound && isUncompressed && facts_.sampleRate > 0 && facts_.channels > 0;
}

bool StreamInspector::offer(const AVPacket& packet) {
  if (done_) return true;
  const bool isVideo = stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  done_ = (isVideo && (parse(packet) || readHeaders(packet))) || decodeOne(packet);
  // Of sound only AAC is likely to come out otherwise than the container says; others need more than one packet to begin with.
  const bool isSettled = stream_.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && stream_.codecpar->codec_id != AV_CODEC_ID_AAC &&
                         facts_.sampleRate > 0 && facts_.channels > 0;
  done_ = done_ || (isSettled && ++attempts_ >= kMostAttempts);
  return done_;
}

bool StreamInspector::readHeaders(const AVPacket& packet) {
  int avError = 0;
  DecoderSettings settings;
  int pixelFormat = AV_PIX_FMT_NONE;
  settings.pixelFormatOnly = &pixelFormat;
  settings.alpha = alpha_;
  auto context = openDecoderContext(*stream_.codecpar, stream_.time_base.num, stream_.time_base.den, settings, limits_, avError);
  if (!context) return false;
  avcodec_send_packet(context.get(), &packet);
  if (pixelFormat == AV_PIX_FMT_NONE || context->width <= 0 || context->height <= 0) return false;
  takePicture(*context, facts_);
  facts_.pixelFormat = pixelFormat;
  return true;
}

bool StreamInspector::decodeOne(const AVPacket& packet) {
  int avError = 0;
  DecoderSettings settings;
  settings.alpha = alpha_;
  auto context = openDecoderContext(*stream_.codecpar, stream_.time_base.num, stream_.time_base.den, settings, limits_, avError);
  AvFramePointer frame(av_frame_alloc());
  if (context) context->log_level_offset = AV_LOG_TRACE;
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
    facts_.packetFrames = frame->nb_samples;
  }
  return true;
}

/// The parser knows how fields are laid out, and of AV1 everything: its decoder tells nothing before the first picture.
bool StreamInspector::parse(const AVPacket& packet) {
  AvParserPointer parser(av_parser_init(stream_.codecpar->codec_id));
  AvCodecContextPointer context(avcodec_alloc_context3(nullptr));
  if (!parser || !context || avcodec_parameters_to_context(context.get(), stream_.codecpar) < 0) return false;
  context->log_level_offset = AV_LOG_TRACE;
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  uint8_t* parsed = nullptr;
  int parsedBytes = 0;
  av_parser_parse2(parser.get(), context.get(), &parsed, &parsedBytes, packet.data, packet.size, packet.pts, packet.dts,
                   packet.pos);
  facts_.interlaced = facts_.interlaced || isInterlaced(parser->field_order);
  if (stream_.codecpar->codec_id != AV_CODEC_ID_AV1 || parser->format < 0 || parser->width <= 0) return false;
  context->width = parser->width;
  context->height = parser->height;
  context->pix_fmt = static_cast<AVPixelFormat>(parser->format);
  takePicture(*context, facts_);
  return true;
}

}  // namespace vidloom
