#include "vidloom/platform/ffmpeg/ColorTags.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidloom {

namespace {

constexpr int kStandardDefinitionWidth = 1024, kStandardDefinitionHeight = 576, kNtscHeight = 486;

bool hasFlag(int pixelFormat, uint64_t flag) {
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  return descriptor && (descriptor->flags & flag) != 0;
}

bool isFullRange(const StreamFacts& facts) {
  switch (facts.pixelFormat) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
      return true;
    default:
      return facts.colorRange == AVCOL_RANGE_JPEG;
  }
}

/// The matrix of a picture that does not say: by its size.
AVColorSpace assumedSpace(const StreamFacts& facts) {
  if (facts.width > kStandardDefinitionWidth || facts.height > kStandardDefinitionHeight) return AVCOL_SPC_BT709;
  return facts.height > kNtscHeight ? AVCOL_SPC_BT470BG : AVCOL_SPC_SMPTE170M;
}

bool isKept(int space) { return space == AVCOL_SPC_BT709 || space == AVCOL_SPC_SMPTE170M || space == AVCOL_SPC_BT470BG; }

const char* primariesName(int primaries, AVColorSpace space) {
  const char* name =
      primaries == AVCOL_PRI_UNSPECIFIED ? nullptr : av_color_primaries_name(static_cast<AVColorPrimaries>(primaries));
  return name ? name : av_color_space_name(space);
}

const char* transferName(int transfer, AVColorSpace space) {
  const char* name =
      transfer == AVCOL_TRC_UNSPECIFIED ? nullptr : av_color_transfer_name(static_cast<AVColorTransferCharacteristic>(transfer));
  if (name) return name;
  return space == AVCOL_SPC_BT709 ? "bt709" : "smpte170m";
}

}  // namespace

bool hasAlphaPlane(int pixelFormat) { return hasFlag(pixelFormat, AV_PIX_FMT_FLAG_ALPHA); }

ColorReading readColorTags(const StreamFacts& facts) {
  ColorReading reading;
  const bool isRgb = hasFlag(facts.pixelFormat, AV_PIX_FMT_FLAG_RGB) || facts.colorSpace == AVCOL_SPC_RGB;
  reading.highDynamicRange = facts.colorTransfer == AVCOL_TRC_SMPTE2084 || facts.colorTransfer == AVCOL_TRC_ARIB_STD_B67;
  reading.isTagged = !isRgb && facts.colorSpace != AVCOL_SPC_UNSPECIFIED;
  reading.changesColors = isRgb || reading.highDynamicRange || (reading.isTagged && !isKept(facts.colorSpace));
  if (reading.changesColors) return reading;
  const AVColorSpace space = reading.isTagged ? static_cast<AVColorSpace>(facts.colorSpace) : assumedSpace(facts);
  reading.color.matrix = space == AVCOL_SPC_BT709 ? ColorMatrix::bt709 : ColorMatrix::bt601;
  reading.color.fullRange = isFullRange(facts);
  reading.color.matrixName = av_color_space_name(space);
  reading.color.primaries = primariesName(facts.colorPrimaries, space);
  reading.color.transfer = transferName(facts.colorTransfer, space);
  return reading;
}

}  // namespace vidloom
