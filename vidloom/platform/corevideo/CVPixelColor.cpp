#include "vidloom/platform/corevideo/CVPixelColor.h"

#include <array>
#include <utility>

#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

namespace {

struct NamePair {
  const char* attachment;
  const char* tag;
};

/// Names that appear in no pair are the same on both sides.
constexpr std::array kPrimaries{NamePair{"ITU_R_709_2", "bt709"}, NamePair{"SMPTE_C", "smpte170m"}, NamePair{"EBU_3213", "bt470bg"},
                                NamePair{"ITU_R_2020", "bt2020"}};
constexpr std::array kTransfers{NamePair{"ITU_R_709_2", "bt709"}, NamePair{"ITU_R_709_2", "smpte170m"},
                                NamePair{"IEC_sRGB", "iec61966-2-1"}};
constexpr std::array kMatrices{NamePair{"ITU_R_709_2", "bt709"}, NamePair{"ITU_R_601_4", "smpte170m"},
                               NamePair{"ITU_R_601_4", "bt470bg"}};

template <typename Pairs>
std::string toAttachment(const Pairs& pairs, const std::string& tag) {
  for (const NamePair& pair : pairs) {
    if (tag == pair.tag) return pair.attachment;
  }
  return tag;
}

/// The tag for an attachment; `present` where that one means the same already.
template <typename Pairs>
std::string toTag(const Pairs& pairs, const std::string& attachment, const std::string& present) {
  if (toAttachment(pairs, present) == attachment) return present;
  for (const NamePair& pair : pairs) {
    if (attachment == pair.attachment) return pair.tag;
  }
  return attachment;
}

}  // namespace

PictureColor defaultPictureColor(size_t width, size_t height) {
  PictureColor color;
  if (width > 720 || height > 576) return color;
  color.matrix = ColorMatrix::bt601;
  color.primaries = color.transfer = color.matrixName = "smpte170m";
  return color;
}

PictureColor pictureColorWithAttachments(PictureColor color, const std::map<std::string, std::string>& attachments) {
  for (const auto& [key, value] : attachments) {
    if (key == kCVImageBufferColorPrimariesKey) color.primaries = toTag(kPrimaries, value, color.primaries);
    if (key == kCVImageBufferTransferFunctionKey) color.transfer = toTag(kTransfers, value, color.transfer);
    if (key != kCVImageBufferYCbCrMatrixKey) continue;
    const std::string name = toTag(kMatrices, value, color.matrixName);
    if (name == value) continue;
    color.matrixName = name;
    color.matrix = name == "bt709" ? ColorMatrix::bt709 : ColorMatrix::bt601;
  }
  return color;
}

std::string colorAttachment(const PictureColor& color, const std::string& key) {
  if (key == kCVImageBufferColorPrimariesKey) return toAttachment(kPrimaries, color.primaries);
  if (key == kCVImageBufferTransferFunctionKey) return toAttachment(kTransfers, color.transfer);
  if (key == kCVImageBufferYCbCrMatrixKey) return toAttachment(kMatrices, color.matrixName);
  return {};
}

}  // namespace vidloom
