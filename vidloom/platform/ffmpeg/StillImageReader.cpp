#include "vidloom/platform/ffmpeg/StillImageReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "vidloom/platform/corevideo/CVPixelMemory.h"
#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/ColorTags.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/ffmpeg/SourceFile.h"
#include "vidloom/platform/pixels/BgraOrientation.h"
#include "vidloom/platform/pixels/PixelConversion.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace vidloom {

namespace {

constexpr int64_t kLargestFileBytes = int64_t{1} << 29;
constexpr int64_t kLongestSide = 32768;
constexpr size_t kPixelBytes = 4;

AVCodecID codecOf(StillImageFormat format) {
  switch (format) {
    case StillImageFormat::png:
      return AV_CODEC_ID_PNG;
    case StillImageFormat::jpeg:
      return AV_CODEC_ID_MJPEG;
    case StillImageFormat::webp:
      return AV_CODEC_ID_WEBP;
    case StillImageFormat::gif:
      return AV_CODEC_ID_GIF;
    case StillImageFormat::tiff:
      return AV_CODEC_ID_TIFF;
  }
  return AV_CODEC_ID_NONE;
}

uint64_t formatFlags(const AVFrame& frame) {
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  return descriptor ? descriptor->flags : 0;
}

/// The orientation of what has to be shown, by EXIF's code.
Orientation orientationOf(int code) {
  constexpr std::array<Orientation, 8> kOrientations{Orientation{false, false, false},
                                                     {false, true, false},
                                                     {false, true, true},
                                                     {false, false, true},
                                                     {true, false, false},
                                                     {true, true, false},
                                                     {true, true, true},
                                                     {true, false, true}};
  return kOrientations[static_cast<size_t>(code) - 1];
}

bool isForeignProfile(const AVFrame& frame) {
  const AVFrameSideData* profile = av_frame_get_side_data(&frame, AV_FRAME_DATA_ICC_PROFILE);
  if (!profile) return false;
  const std::string_view text(reinterpret_cast<const char*>(profile->data), profile->size);
  constexpr std::string_view kWide("s\0R\0G\0B", 7);  // descriptions come in one byte or in two bytes a character
  return text.find("sRGB") == std::string_view::npos && text.find(kWide) == std::string_view::npos;
}

bool isPlanar420(int format) {
  return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVA420P;
}

/// Chroma is taken as it stands for its four pixels, so that a picture made of them again has the same.
void convertPlanarFrame(const AVFrame& frame, bool fullRange, uint8_t* bgra, int stride) {
  Picture picture;
  picture.width = frame.width;
  picture.height = frame.height;
  picture.y = {frame.data[0], frame.linesize[0]};
  picture.cb = {frame.data[1], frame.linesize[1]};
  picture.cr = {frame.data[2], frame.linesize[2]};
  if (frame.format == AV_PIX_FMT_YUVA420P) picture.alpha = {frame.data[3], frame.linesize[3]};
  picture.color.matrix = frame.colorspace == AVCOL_SPC_BT709 ? ColorMatrix::bt709 : ColorMatrix::bt601;
  picture.color.fullRange = fullRange;
  writeBGRA(picture, AlphaMode::straight, bgra, stride);
}

/// From the frame's format to straight BGRA of the same size. A libav error or 0.
int convertFrame(const AVFrame& frame, bool fullRange, uint8_t* bgra, int stride) {
  if (isPlanar420(frame.format)) {
    convertPlanarFrame(frame, fullRange, bgra, stride);
    return 0;
  }
  const SwsContextPointer context(sws_alloc_context());
  if (!context) return AVERROR(ENOMEM);
  for (const auto& [name, value] : {std::pair("srcw", frame.width),
                                    {"srch", frame.height},
                                    {"src_format", frame.format},
                                    {"dstw", frame.width},
                                    {"dsth", frame.height},
                                    {"dst_format", int{AV_PIX_FMT_BGRA}}}) {
    av_opt_set_int(context.get(), name, value, 0);
  }
  constexpr int kFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT;
  av_opt_set_int(context.get(), "sws_flags", kFlags, 0);
  const int space = frame.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601;
  const int* matrix = sws_getCoefficients(space);
  sws_setColorspaceDetails(context.get(), matrix, fullRange ? 1 : 0, matrix, 1, 0, 1 << 16, 1 << 16);
  int result = sws_init_context(context.get(), nullptr, nullptr);
  if (result >= 0) result = sws_scale(context.get(), frame.data, frame.linesize, 0, frame.height, &bgra, &stride);
  return std::min(result, 0);
}

void divideByAlpha(uint8_t* bgra, size_t pixelCount) {
  for (uint8_t* const end = bgra + pixelCount * kPixelBytes; bgra != end; bgra += kPixelBytes) {
    const int alpha = bgra[3];
    for (int i = 0; i < 3 && alpha > 0; ++i) bgra[i] = static_cast<uint8_t>(std::min(255, (bgra[i] * 255 + alpha / 2) / alpha));
  }
}

}  // namespace

std::optional<StillImage> decodeStillImage(const std::filesystem::path& path, const MediaLimits& limits,
                                           std::optional<NSError>* error) {
  return StillImageReader(path, limits, error).read();
}

std::optional<StillImage> StillImageReader::read() {
  AvLog::install();
  const std::string name = path_.string();
  const AvLogScope scope(name, AvLogScope::Mode::drop);
  if (!inspect() || !decode() || !convert() || !place() || !turn()) return std::nullopt;
  return image_;
}

bool StillImageReader::fail(AVError code, const std::string& problem, int avError) {
  setInputError(error_, inputError(code, path_, problem, avError));
  return false;
}

bool StillImageReader::inspect() {
  const auto source = SourceFile::open(path_, error_);
  if (!source) return false;
  if (source->size() > kLargestFileBytes) return fail(AVErrorFileFailedToParse, "is larger than an image file may be (512 MB)");
  std::vector<uint8_t> bytes(static_cast<size_t>(source->size()));
  for (size_t at = 0; at < bytes.size();) {
    const int64_t got = source->readAt(static_cast<int64_t>(at), bytes.data() + at, bytes.size() - at);
    if (got <= 0) return fail(AVErrorFailedToLoadMediaData, "cannot be read", got < 0 ? static_cast<int>(got) : AVERROR(EIO));
    at += static_cast<size_t>(got);
  }
  std::string problem;
  auto file = StillImageFile::inspect(bytes, problem);
  if (!file) return fail(AVErrorFileFormatNotRecognized, problem);
  file_ = std::move(*file);
  const std::string size = std::to_string(file_.width) + " x " + std::to_string(file_.height) + " pixels";
  if (file_.width <= 0 || file_.height <= 0) return fail(AVErrorFileFailedToParse, "has a size of " + size);
  if (std::max(file_.width, file_.height) > kLongestSide || file_.width > limits_.maxPixels / file_.height) {
    return fail(AVErrorFileFailedToParse, "has " + size + ", more than is read (" + std::to_string(limits_.maxPixels) +
                                              " in all, " + std::to_string(kLongestSide) + " on a side)");
  }
  return true;
}

bool StillImageReader::decode() {
  frame_.reset(av_frame_alloc());
  const int result = frame_ ? decodeFrame() : AVERROR(ENOMEM);
  file_.data = {};
  if (result < 0) {
    const AVError code = result == AVERROR(ENOMEM) ? AVErrorOutOfMemory : AVErrorDecodeFailed;
    return fail(code, "is damaged or cut off: its picture cannot be decoded", result);
  }
  if (frame_->width <= file_.width - file_.frameX && frame_->height <= file_.height - file_.frameY) return true;
  return fail(AVErrorDecodeFailed, "is damaged: its picture is larger than it says");
}

/// A libav error or 0.
int StillImageReader::decodeFrame() {
  const AVCodec* codec = avcodec_find_decoder(codecOf(file_.format));
  if (!codec) return AVERROR_DECODER_NOT_FOUND;
  const AvCodecContextPointer context(avcodec_alloc_context3(codec));
  const AvPacketPointer packet(av_packet_alloc());
  if (!context || !packet) return AVERROR(ENOMEM);
  context->thread_count = 1;
  context->max_pixels = limits_.maxPixels;
  // Some TIFF files have tags that the decoder would take exception to.
  if (file_.format != StillImageFormat::tiff) context->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
  const size_t size = file_.data.size();
  file_.data.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
  packet->data = file_.data.data();
  packet->size = static_cast<int>(size);
  packet->flags = AV_PKT_FLAG_KEY;
  int result = avcodec_open2(context.get(), codec, nullptr);
  if (result >= 0) result = avcodec_send_packet(context.get(), packet.get());
  if (result >= 0) result = avcodec_send_packet(context.get(), nullptr);
  if (result >= 0) result = avcodec_receive_frame(context.get(), frame_.get());
  return result == AVERROR_EOF ? AVERROR_INVALIDDATA : std::min(result, 0);
}

bool StillImageReader::convert() {
  image_.width = static_cast<size_t>(frame_->width);
  image_.height = static_cast<size_t>(frame_->height);
  describe();
  const auto pixels = makePixels(image_.width, image_.height);
  if (!pixels) return false;
  const bool isRgb = (formatFlags(*frame_) & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
  const bool isFullRange = isRgb || frame_->color_range == AVCOL_RANGE_JPEG || image_.model == StillImageModel::grey ||
                           file_.format == StillImageFormat::jpeg || file_.format == StillImageFormat::tiff;
  const int result = convertFrame(*frame_, isFullRange, pixels.get(), static_cast<int>(image_.width * kPixelBytes));
  frame_.reset();
  if (result < 0) return fail(AVErrorDecodeFailed, "has pixels of a kind that cannot be converted", result);
  if (file_.isPremultiplied && image_.hasAlpha) divideByAlpha(pixels.get(), image_.width * image_.height);
  image_.bytes = pixels;
  // These formats cannot say that there is no alpha.
  if (image_.model == StillImageModel::indexed || file_.format == StillImageFormat::webp) {
    const int width = static_cast<int>(image_.width), height = static_cast<int>(image_.height);
    image_.hasAlpha = !isOpaqueBGRA(pixels.get(), static_cast<ptrdiff_t>(image_.width * kPixelBytes), width, height);
  }
  return true;
}

void StillImageReader::describe() {
  const uint64_t flags = formatFlags(*frame_);
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame_->format));
  image_.hasOtherProfile = isForeignProfile(*frame_);
  image_.hasAlpha = file_.format != StillImageFormat::jpeg && (hasAlphaPlane(frame_->format) || (flags & AV_PIX_FMT_FLAG_PAL) != 0);
  if ((flags & AV_PIX_FMT_FLAG_PAL) != 0 || file_.format == StillImageFormat::gif) {
    image_.model = StillImageModel::indexed;
  } else if (file_.components == 4) {
    image_.model = StillImageModel::cmyk;
  } else if (descriptor && descriptor->nb_components <= 2) {
    image_.model = StillImageModel::grey;
  }
}

/// The first frame of an animation may be smaller than the picture.
bool StillImageReader::place() {
  const size_t width = static_cast<size_t>(file_.width), height = static_cast<size_t>(file_.height);
  if (image_.width == width && image_.height == height) return true;
  const auto pixels = makePixels(width, height);
  if (!pixels) return false;
  const size_t rowBytes = image_.width * kPixelBytes;
  for (size_t y = 0; y < image_.height; ++y) {
    const size_t to = (y + static_cast<size_t>(file_.frameY)) * width + static_cast<size_t>(file_.frameX);
    std::memcpy(pixels.get() + to * kPixelBytes, image_.bytes.get() + y * rowBytes, rowBytes);
  }
  image_ = {width, height, pixels, true, image_.model, image_.hasOtherProfile};
  return true;
}

bool StillImageReader::turn() {
  const Orientation orientation = orientationOf(file_.orientation);
  if (orientation.isUpright()) return true;
  const size_t width = image_.width, height = image_.height;
  const auto pixels = makePixels(width, height);
  if (!pixels) return false;
  if (orientation.transpose) std::swap(image_.width, image_.height);
  orientBGRA(image_.bytes.get(), static_cast<ptrdiff_t>(width * kPixelBytes), static_cast<int>(width), static_cast<int>(height),
             orientation, pixels.get(), static_cast<ptrdiff_t>(image_.width * kPixelBytes));
  image_.bytes = pixels;
  return true;
}

std::shared_ptr<uint8_t> StillImageReader::makePixels(size_t width, size_t height) {
  auto pixels = CVPixelMemory::allocate(width * height * kPixelBytes);
  if (!pixels) fail(AVErrorOutOfMemory, "cannot be decoded: memory has run out");
  return pixels;
}

}  // namespace vidloom
