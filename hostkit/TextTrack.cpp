#include "hostkit/TextTrack.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/platform/quartzcore/CALayer.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {
namespace {

uint32_t codesOf(const std::array<double, 4>& rgba) {
  uint32_t codes = 0;
  for (const double part : rgba) codes = codes << 8 | static_cast<uint32_t>(std::lround(255 * std::clamp(part, 0.0, 1.0)));
  return codes;
}

}  // namespace

std::shared_ptr<TextTrack> TextTrack::initWithId(uint64_t objectId) {
  struct Concrete : TextTrack {};
  auto track = std::make_shared<Concrete>();
  return track->prepareWithId(objectId) ? track : nullptr;
}

std::shared_ptr<TextTrack> TextTrack::initWithText(const std::string& text, const TextStyle& style, uint64_t objectId,
                                                   const CMTimeRange& initialTimeRange, std::string& problem) {
  const auto picture = pictureOfText(text, style, 1, problem);
  auto track = picture ? initWithId(objectId) : nullptr;
  if (!track) return nullptr;
  track->text_ = text;
  track->style_ = style;
  track->frame_ = picture->frame;
  track->image_ = picture->image;
  track->setStart(initialTimeRange.start);
  track->updateAssetDuration(initialTimeRange.duration);
  return track;
}

CGAffineTransform TextTrack::transformAt(const CGPoint& position) const {
  return {1, 0, 0, 1, position.x + frame_.origin.x, position.y + frame_.origin.y};
}

CGImageRef TextTrack::staticSourceCGImageRef() const {
  const double scale = contentsScale() > 0 ? contentsScale() : 1;
  if (!image_ || (scale == imageScale_ && backgroundColor() == imageBackground_)) return image_;
  imageScale_ = scale;
  imageBackground_ = backgroundColor();
  TextStyle style = style_;
  if (imageBackground_) style.backgroundRGBA = codesOf(CGColorGetComponents(imageBackground_));
  std::string problem;
  if (const auto picture = pictureOfText(text_, style, scale, problem)) {
    image_ = picture->image;
  } else {
    NSLog("The text \"" + text_ + "\" stays as it was drawn: " + problem);
  }
  return image_;
}

bool TextTrack::isShownAt(const CMTime& time) const {
  return CMTimeCompare(start(), time) <= 0 && CMTimeCompare(time, CMTimeAdd(start(), duration())) < 0;
}

std::optional<NSDictionary> TextTrack::attrsForTime(const CMTime& time) const {
  if (!isShownAt(time)) return std::nullopt;
  const auto part = [this](int shift) { return (style_.colorRGBA >> shift & 0xff) / 255.0; };
  return NSDictionary{
      {"string", text_}, {"font", style_.font}, {"foregroundColor", CGColorCreateSRGB(part(24), part(16), part(8), part(0))}};
}

const std::shared_ptr<CALayer>& TextTrack::currentLayer() {
  if (!layer_) layer_ = CALayer::layer();
  layer_->setContents(staticSourceCGImageRef());
  layer_->setFrame({CGPointMake(position().x + frame_.origin.x, position().y + frame_.origin.y), frame_.size});
  return layer_;
}

std::shared_ptr<CALayer> TextTrack::layerForTime(const CMTime& time) { return isShownAt(time) ? currentLayer() : nullptr; }

void TextTrack::setHidden(bool hidden) { currentLayer()->setHidden(hidden); }

void TextTrack::addInToSuperlayer(const std::shared_ptr<CALayer>& superlayer) {
  if (superlayer) superlayer->addSublayer(currentLayer());
}

void TextTrack::removeFromSuperlayer() {
  if (layer_) layer_->removeFromSuperlayer();
}

CGSize TextTrack::sizeToFit() {
  setBounds(frame_);
  return frame_.size;
}

std::shared_ptr<LUMTrack> TextTrack::copyWithId(uint64_t objectId) const {
  auto copy = initWithId(objectId);
  if (!copy) return nullptr;
  copy->text_ = text_;
  copy->style_ = style_;
  copy->frame_ = frame_;
  copy->image_ = image_;
  copy->imageScale_ = imageScale_;
  copy->imageBackground_ = imageBackground_;
  copy->setContentsScale(contentsScale());
  copy->setBackgroundColor(backgroundColor());
  copy->setPosition(position());
  copy->setBounds(bounds());
  copy->setFrame(frame());
  copy->setCaTransform(caTransform());
  copy->setStart(start());
  copy->updateAssetDuration(assetDuration());
  copy->setLeftTrimOffset(leftTrimOffset());
  copy->setRightTrimOffset(rightTrimOffset());
  copy->setTransform(transform());
  copy->setIgnoreRendering(ignoreRendering());
  if (scaleContext()) copy->setScaleContext(scaleContext()->copy());
  copy->userInfo() = userInfo();
  if (cropData()) copy->setCropData(cropData()->copy());
  return copy;
}

}  // namespace vidloom
