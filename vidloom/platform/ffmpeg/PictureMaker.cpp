#include "vidloom/platform/ffmpeg/PictureMaker.h"

#include "vidloom/platform/ffmpeg/ColorTags.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/platform/pixels/PicturePool.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace vidloom {

namespace {

bool isPlanar420(int format) {
  return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVA420P;
}

bool isFullRange(const AVFrame& frame) { return frame.format == AV_PIX_FMT_YUVJ420P || frame.color_range == AVCOL_RANGE_JPEG; }

PictureRef wrap(AvFramePointer frame, const PictureColor& color) {
  const auto picture = std::make_shared<Picture>();
  picture->width = frame->width;
  picture->height = frame->height;
  picture->y = {frame->data[0], frame->linesize[0]};
  picture->cb = {frame->data[1], frame->linesize[1]};
  picture->cr = {frame->data[2], frame->linesize[2]};
  if (frame->format == AV_PIX_FMT_YUVA420P) picture->alpha = {frame->data[3], frame->linesize[3]};
  picture->color = color;
  picture->owner = std::shared_ptr<AVFrame>(std::move(frame));
  return picture;
}

}  // namespace

struct PictureMaker::Scaling {
  SwsContextPointer context;
  int width = 0, height = 0, format = -1, range = 0;
  bool alpha = false;
};

PictureMaker::PictureMaker(const MediaTrack& track, const TrackSource& source) : track_(track), facts_(source.facts) {
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(facts_.pixelFormat));
  const bool isRgb = descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
  changesColors_ = !isRgb && readColorTags(facts_).changesColors;
}

PictureMaker::~PictureMaker() = default;

PictureRef PictureMaker::make(AvFramePointer frame, int& avError) {
  avError = 0;
  if (changesColors_) return changeColors(std::move(frame), avError);
  if (isPassedOn(*frame)) return wrap(std::move(frame), track_.color);
  return scale(*frame, avError);
}

bool PictureMaker::isPassedOn(const AVFrame& frame) const {
  return isPlanar420(frame.format) && frame.width == track_.codedWidth && frame.height == track_.codedHeight &&
         isFullRange(frame) == track_.color.fullRange;
}

bool PictureMaker::prepareScaler(const AVFrame& frame) {
  const bool alpha = hasAlphaPlane(frame.format);
  const int range = isFullRange(frame) ? 1 : 0;
  if (scaling_ && scaling_->width == frame.width && scaling_->height == frame.height && scaling_->format == frame.format &&
      scaling_->range == range) {
    return true;
  }
  scaling_ = std::make_unique<Scaling>();
  *scaling_ = {SwsContextPointer(sws_alloc_context()), frame.width, frame.height, frame.format, range, alpha};
  SwsContext* context = scaling_->context.get();
  if (!context) return false;
  av_opt_set_int(context, "srcw", frame.width, 0);
  av_opt_set_int(context, "srch", frame.height, 0);
  av_opt_set_int(context, "src_format", frame.format, 0);
  av_opt_set_int(context, "dstw", track_.codedWidth, 0);
  av_opt_set_int(context, "dsth", track_.codedHeight, 0);
  av_opt_set_int(context, "dst_format", alpha ? AV_PIX_FMT_YUVA420P : AV_PIX_FMT_YUV420P, 0);
  av_opt_set_int(context, "sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT, 0);
  const int* matrix = sws_getCoefficients(track_.color.matrix == ColorMatrix::bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const bool isRgb = descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
  // Range and matrix count only when they are set before the context is made ready.
  sws_setColorspaceDetails(context, matrix, isRgb ? 1 : range, matrix, track_.color.fullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
  return sws_init_context(context, nullptr, nullptr) >= 0;
}

PictureRef PictureMaker::scale(const AVFrame& frame, int& avError) {
  if (!prepareScaler(frame)) {
    scaling_.reset();
    avError = AVERROR(EINVAL);
    return nullptr;
  }
  const auto picture = PicturePool::shared().make(track_.codedWidth, track_.codedHeight, track_.color, scaling_->alpha);
  if (!picture) {
    avError = AVERROR(ENOMEM);
    return nullptr;
  }
  uint8_t* planes[4] = {picture->mutableY(), picture->mutableCb(), picture->mutableCr(),
                        scaling_->alpha ? picture->mutableAlpha() : nullptr};
  const int strides[4] = {static_cast<int>(picture->y.stride), static_cast<int>(picture->cb.stride),
                          static_cast<int>(picture->cr.stride), static_cast<int>(picture->alpha.stride)};
  avError = sws_scale(scaling_->context.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
  if (avError < 0) return nullptr;
  avError = 0;
  return picture;
}

/// Every step by zimg, which converts by the frames' tags; linear light relative to a white of 100 cd/m2.
std::string PictureMaker::colorChain() const {
  const std::string last =
      NSStringWithFormat("zscale=w=%d:h=%d:transfer=709:matrix=709:primaries=709:range=limited:dither=none,format=yuv420p",
                         track_.codedWidth, track_.codedHeight);
  if (!track_.highDynamicRange) return last;
  return "zscale=transfer=linear:npl=100,format=gbrpf32le,zscale=primaries=709,tonemap=tonemap=hable:desat=0," + last;
}

/// Without full tags there is no way from one colour space to another.
void PictureMaker::completeTags(AVFrame& frame) const {
  if (frame.colorspace == AVCOL_SPC_UNSPECIFIED) frame.colorspace = static_cast<AVColorSpace>(facts_.colorSpace);
  if (frame.color_primaries == AVCOL_PRI_UNSPECIFIED) frame.color_primaries = static_cast<AVColorPrimaries>(facts_.colorPrimaries);
  if (frame.color_trc == AVCOL_TRC_UNSPECIFIED) frame.color_trc = static_cast<AVColorTransferCharacteristic>(facts_.colorTransfer);
  const bool isWide =
      track_.highDynamicRange || frame.colorspace == AVCOL_SPC_BT2020_NCL || frame.colorspace == AVCOL_SPC_BT2020_CL;
  if (frame.colorspace == AVCOL_SPC_UNSPECIFIED) frame.colorspace = isWide ? AVCOL_SPC_BT2020_NCL : AVCOL_SPC_BT709;
  if (frame.color_primaries == AVCOL_PRI_UNSPECIFIED) frame.color_primaries = isWide ? AVCOL_PRI_BT2020 : AVCOL_PRI_BT709;
  if (frame.color_trc == AVCOL_TRC_UNSPECIFIED) frame.color_trc = AVCOL_TRC_BT709;
  if (frame.color_range == AVCOL_RANGE_UNSPECIFIED) frame.color_range = AVCOL_RANGE_MPEG;
}

PictureRef PictureMaker::changeColors(AvFramePointer frame, int& avError) {
  completeTags(*frame);
  const FilterGraph::Input input = FilterGraph::inputOf(*frame, 1, 1);
  if (!colorGraph_ || !(colorGraph_->input() == input)) colorGraph_ = FilterGraph::make(colorChain(), input, avError);
  if (!colorGraph_) return nullptr;
  avError = colorGraph_->push(frame.get());
  if (avError >= 0) {
    av_frame_unref(frame.get());
    avError = colorGraph_->pull(*frame);
  }
  if (avError < 0) return nullptr;
  avError = 0;
  return wrap(std::move(frame), track_.color);
}

}  // namespace vidloom
