#include "vidloom/platform/ffmpeg/PngWriter.h"

#include <algorithm>

#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/ffmpeg/MovieErrors.h"
#include "vidloom/platform/ffmpeg/ScratchFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
}

namespace vidloom {

namespace {

constexpr int kCompressionLevel = 4;

uint8_t unpremultiplied(uint8_t value, uint8_t alpha) {
  return static_cast<uint8_t>(std::min(255, (value * 255 + alpha / 2) / alpha));
}

/// B, G, R, A to R, G, B or R, G, B and straight A.
void writeRow(const uint8_t* bgra, AlphaMode mode, int width, uint8_t* out) {
  for (int x = 0; x < width; ++x, bgra += 4) {
    const uint8_t alpha = bgra[3];
    const bool divides = mode == AlphaMode::premultiplied && alpha != 255 && alpha != 0;
    for (int channel = 2; channel >= 0; --channel) *out++ = divides ? unpremultiplied(bgra[channel], alpha) : bgra[channel];
    if (mode != AlphaMode::ignored) *out++ = alpha;
  }
}

AvFramePointer makeFrame(const PngPixels& pixels) {
  AvFramePointer frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->width = pixels.width;
  frame->height = pixels.height;
  frame->format = pixels.alpha == AlphaMode::ignored ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_RGBA;
  frame->color_primaries = AVCOL_PRI_BT709;
  frame->color_trc = AVCOL_TRC_IEC61966_2_1;
  frame->color_range = AVCOL_RANGE_JPEG;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  for (int y = 0; y < pixels.height; ++y) {
    writeRow(pixels.bgra + y * pixels.stride, pixels.alpha, pixels.width, frame->data[0] + y * frame->linesize[0]);
  }
  return frame;
}

/// The whole file in one packet. A libav error or 0.
int encode(const PngPixels& pixels, AVPacket& packet) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  if (!codec) return AVERROR_ENCODER_NOT_FOUND;
  const AvFramePointer frame = makeFrame(pixels);
  const AvCodecContextPointer context(avcodec_alloc_context3(codec));
  if (!frame || !context) return AVERROR(ENOMEM);
  context->width = pixels.width;
  context->height = pixels.height;
  context->pix_fmt = static_cast<AVPixelFormat>(frame->format);
  context->time_base = {1, 1};
  context->thread_count = 1;
  context->compression_level = kCompressionLevel;
  av_opt_set(context->priv_data, "pred", "paeth", 0);
  int result = avcodec_open2(context.get(), codec, nullptr);
  if (result >= 0) result = avcodec_send_frame(context.get(), frame.get());
  if (result >= 0) result = avcodec_send_frame(context.get(), nullptr);
  if (result >= 0) result = avcodec_receive_packet(context.get(), &packet);
  return std::min(result, 0);
}

}  // namespace

bool writePng(const PngPixels& pixels, const std::filesystem::path& path, std::optional<NSError>* error) {
  AvLog::install();
  const MovieErrors errors(path);
  int errnoValue = 0;
  const auto file = ScratchFile::openFor(path, errnoValue);
  if (!file) {
    setInputError(error, errors.system("write", errnoValue));
    return false;
  }
  const AvPacketPointer packet(av_packet_alloc());
  const int result = packet ? encode(pixels, *packet) : AVERROR(ENOMEM);
  if (result < 0) {
    setInputError(error, errors.encoderMissing("picture", result));
    return false;
  }
  errnoValue = file->append({packet->data, static_cast<size_t>(packet->size)});
  if (errnoValue == 0) errnoValue = file->moveTo(path);
  if (errnoValue != 0) setInputError(error, errors.system("write", errnoValue));
  return errnoValue == 0;
}

}  // namespace vidloom
