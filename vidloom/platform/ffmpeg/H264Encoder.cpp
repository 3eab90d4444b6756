#include "vidloom/platform/ffmpeg/H264Encoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <span>
#include <string_view>

#include "vidloom/platform/ffmpeg/BoxWriter.h"
#include "vidloom/platform/pixels/PicturePool.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/cpu.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace vidloom {

namespace {

constexpr double defaultCrf = 20;
constexpr std::string_view defaultPreset = "veryfast";
constexpr std::array<std::string_view, 10> presets{"ultrafast", "superfast", "veryfast", "faster",   "fast",
                                                   "medium",    "slow",      "slower",   "veryslow", "placebo"};

int roundedUpToEven(int value) { return (value + 1) & ~1; }

AVColorPrimaries primariesOf(const PictureColor& color) {
  const int found = av_color_primaries_from_name(color.primaries.c_str());
  return found < 0 ? AVCOL_PRI_UNSPECIFIED : static_cast<AVColorPrimaries>(found);
}

AVColorTransferCharacteristic transferOf(const PictureColor& color) {
  const int found = av_color_transfer_from_name(color.transfer.c_str());
  return found < 0 ? AVCOL_TRC_UNSPECIFIED : static_cast<AVColorTransferCharacteristic>(found);
}

AVColorSpace matrixOf(const PictureColor& color) {
  const int found = av_color_space_from_name(color.matrixName.c_str());
  return found < 0 ? AVCOL_SPC_UNSPECIFIED : static_cast<AVColorSpace>(found);
}

/// x264 r3095 looks ahead in groups of 8 macroblocks with AVX-512 and takes what lies in memory behind a row that is no multiple
/// of that into account: the same pictures would not give the same stream. Every processor with AVX-512 has the sets named here.
std::string instructionSets(int width) {
  constexpr int macroblockSide = 16, groupedMacroblocks = 8;
  const int macroblocks = (width + macroblockSide - 1) / macroblockSide;
  const bool isTouched = (av_get_cpu_flags() & AV_CPU_FLAG_AVX512) != 0 && macroblocks % groupedMacroblocks != 0;
  return isTouched ? ":asm=MMX2,SSE2Fast,LZCNT,SSSE3,SSE4.2,AVX,FMA3,BMI1,BMI2,AVX2" : "";
}

void configure(AVCodecContext& context, const H264Encoder::Settings& settings) {
  context.width = roundedUpToEven(settings.width);
  context.height = roundedUpToEven(settings.height);
  context.pix_fmt = AV_PIX_FMT_YUV420P;
  context.framerate = {static_cast<int>(settings.rateNumerator), static_cast<int>(settings.rateDenominator)};
  context.time_base = av_inv_q(context.framerate);
  context.sample_aspect_ratio = {1, 1};
  context.color_range = AVCOL_RANGE_MPEG;
  context.color_primaries = primariesOf(settings.color);
  context.color_trc = transferOf(settings.color);
  context.colorspace = matrixOf(settings.color);
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  context.thread_count = settings.options.threads.value_or(0);
  const std::string preset = settings.options.preset.value_or(std::string(defaultPreset));
  av_opt_set(context.priv_data, "preset", preset.c_str(), 0);
  av_opt_set_double(context.priv_data, "crf", settings.options.crf.value_or(defaultCrf), 0);
  // NAL units behind lengths, as the file wants them.
  const std::string parameters = "annexb=0" + instructionSets(context.width);
  av_opt_set(context.priv_data, "x264-params", parameters.c_str(), 0);
}

/// The units in a run of 4-byte lengths and units.
std::vector<std::span<const uint8_t>> unitsOf(std::span<const uint8_t> run) {
  constexpr size_t lengthBytes = 4;
  std::vector<std::span<const uint8_t>> units;
  while (run.size() > lengthBytes) {
    size_t length = 0;
    for (size_t i = 0; i < lengthBytes; ++i) length = length << 8 | run[i];
    length = std::min(length, run.size() - lengthBytes);
    units.push_back(run.subspan(lengthBytes, length));
    run = run.subspan(lengthBytes + length);
  }
  return units;
}

void writeUnits(BoxWriter& box, uint64_t countWithReservedBits, const std::vector<std::span<const uint8_t>>& units, int type) {
  box.u8(countWithReservedBits);
  for (const auto unit : units) {
    if ((unit[0] & 31) != type) continue;
    box.u16(unit.size());
    box.bytes(unit);
  }
}

/// The decoder configuration: one sequence and one picture parameter set, 4:2:0, 8 bits.
void writeConfiguration(BoxWriter& box, std::span<const uint8_t> extradata) {
  constexpr int sequenceParameters = 7, pictureParameters = 8;
  const auto units = unitsOf(extradata);
  const auto sequence = std::find_if(units.begin(), units.end(), [](auto unit) { return (unit[0] & 31) == sequenceParameters; });
  if (sequence == units.end() || sequence->size() < 4) return;
  box.open("avcC");
  box.u8(1);
  box.bytes(sequence->subspan(1, 3));
  box.u8(0xff);
  writeUnits(box, 0xe1, units, sequenceParameters);
  writeUnits(box, 1, units, pictureParameters);
  const int profile = (*sequence)[1];
  const bool isHigh = profile != 66 && profile != 77 && profile != 88;
  if (isHigh) box.bytes(std::array<uint8_t, 4>{0xfd, 0xf8, 0xf8, 0});
  box.close();
}

void writeColor(BoxWriter& box, const PictureColor& color) {
  box.open("colr");
  box.text("nclx");
  box.u16(primariesOf(color));
  box.u16(transferOf(color));
  box.u16(matrixOf(color));
  box.u8(0);
  box.close();
}

void repeatEdges(uint8_t* plane, ptrdiff_t stride, int width, int height, int paddedWidth, int paddedHeight) {
  for (int row = 0; row < height && paddedWidth > width; ++row) plane[row * stride + width] = plane[row * stride + width - 1];
  if (paddedHeight > height) std::memcpy(plane + height * stride, plane + (height - 1) * stride, static_cast<size_t>(paddedWidth));
}

void copyPlane(const PicturePlane& from, uint8_t* to, ptrdiff_t toStride, int width, int height) {
  for (int row = 0; row < height; ++row)
    std::memcpy(to + row * toStride, from.data + row * from.stride, static_cast<size_t>(width));
}

void releasePicture(void* opaque, uint8_t* /*data*/) {
  const std::unique_ptr<PictureRef> picture(static_cast<PictureRef*>(opaque));
}

/// Lets the frame stand for the picture without copying; the frame's buffer holds a reference to it.
bool wrap(const PictureRef& picture, AVFrame& frame) {
  auto reference = std::make_unique<PictureRef>(picture);
  // One buffer keeps all planes; its size is of no meaning to an encoder that is given data pointers.
  auto* data = const_cast<uint8_t*>(picture->y.data);
  frame.buf[0] = av_buffer_create(data, 1, releasePicture, reference.get(), AV_BUFFER_FLAG_READONLY);
  if (frame.buf[0] == nullptr) return false;
  static_cast<void>(reference.release());
  const std::array<const PicturePlane*, 3> planes{&picture->y, &picture->cb, &picture->cr};
  for (size_t i = 0; i < planes.size(); ++i) {
    frame.data[i] = const_cast<uint8_t*>(planes[i]->data);
    frame.linesize[i] = static_cast<int>(planes[i]->stride);
  }
  frame.format = AV_PIX_FMT_YUV420P;
  frame.width = picture->width;
  frame.height = picture->height;
  return true;
}

}  // namespace

std::string H264Encoder::problemWith(const VideoEncoderOptions& options) {
  constexpr double maximumCrf = 51;
  constexpr int maximumThreads = 128;
  if (options.preset && std::find(presets.begin(), presets.end(), *options.preset) == presets.end()) {
    return "there is no encoder preset \"" + *options.preset + "\"";
  }
  if (options.crf && !(*options.crf >= 0 && *options.crf <= maximumCrf)) return "the encoder's crf is not within 0 and 51";
  if (options.threads && (*options.threads < 0 || *options.threads > maximumThreads)) {
    return "the encoder's number of threads is not within 0 and 128";
  }
  return {};
}

std::unique_ptr<H264Encoder> H264Encoder::open(const Settings& settings, int& avError) {
  const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
  avError = codec == nullptr ? AVERROR_ENCODER_NOT_FOUND : AVERROR(ENOMEM);
  AvCodecContextPointer context(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
  if (!context) return nullptr;
  AvLogName logName(context.get(), settings.logName);
  configure(*context, settings);
  avError = avcodec_open2(context.get(), codec, nullptr);
  if (avError < 0) return nullptr;
  return std::make_unique<H264Encoder>(settings, std::move(context), std::move(logName));
}

H264Encoder::H264Encoder(const Settings& settings, AvCodecContextPointer context, AvLogName logName)
    : settings_(settings), encoder_(std::move(context), std::move(logName)), frame_(av_frame_alloc()) {}

PictureRef H264Encoder::padded(const PictureRef& picture) const {
  const int width = roundedUpToEven(picture->width), height = roundedUpToEven(picture->height);
  if (width == picture->width && height == picture->height) return picture;
  const auto copy = PicturePool::shared().make(width, height, picture->color, false);
  if (!copy) return nullptr;
  copyPlane(picture->y, copy->mutableY(), copy->y.stride, picture->width, picture->height);
  copyPlane(picture->cb, copy->mutableCb(), copy->cb.stride, picture->chromaWidth(), picture->chromaHeight());
  copyPlane(picture->cr, copy->mutableCr(), copy->cr.stride, picture->chromaWidth(), picture->chromaHeight());
  repeatEdges(copy->mutableY(), copy->y.stride, picture->width, picture->height, width, height);
  return copy;
}

PacketEncoder::Result H264Encoder::encode(const PictureRef& picture, const PacketSink& sink) {
  const PictureRef even = padded(picture);
  if (!frame_ || !even || !wrap(even, *frame_)) return {AVERROR(ENOMEM), 0};
  frame_->pts = nextTick_++;
  const PacketEncoder::Result result = encoder_.submit(frame_.get(), sink);
  av_frame_unref(frame_.get());
  return result;
}

PacketEncoder::Result H264Encoder::flush(const PacketSink& sink) { return encoder_.submit(nullptr, sink); }

std::vector<uint8_t> H264Encoder::sampleEntry() const {
  constexpr uint32_t dotsPerInch72 = 72 << 16;
  const AVCodecContext& context = encoder_.context();
  BoxWriter box;
  box.open("avc1");
  box.zeros(6);
  box.u16(1);
  box.zeros(16);
  box.u16(static_cast<uint64_t>(settings_.width));
  box.u16(static_cast<uint64_t>(settings_.height));
  box.u32(dotsPerInch72);
  box.u32(dotsPerInch72);
  box.u32(0);
  box.u16(1);
  box.zeros(32);
  box.u16(24);
  box.u16(0xffff);
  writeConfiguration(box, {context.extradata, static_cast<size_t>(context.extradata_size)});
  writeColor(box, settings_.color);
  box.open("pasp");
  box.u32(1);
  box.u32(1);
  box.close();
  box.close();
  return box.data();
}

}  // namespace vidloom
