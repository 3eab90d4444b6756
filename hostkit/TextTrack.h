// The track that shows a text.
#pragma once

#include "hostkit/TextPicture.h"
#include "vidloom/timeline/LUMAVTextAttributeTrack.h"

namespace vidloom {

/// Lasts as long as its initial range says and holds frames of its own. Its picture is what a TimelineDrawer shows: drawn once, at
/// contentsScale() pixels for one of the text's size (zero counts as 1), which text that a transform enlarges can use, with
/// backgroundColor() behind the text's box. `transform` maps from the top left of the picture; transformAt puts the text's box
/// somewhere.
class TextTrack : public LUMAVTextAttributeTrack {
 public:
  static std::shared_ptr<TextTrack> initWithId(uint64_t objectId);
  /// Null, with the cause in `problem`, where the text cannot be drawn.
  static std::shared_ptr<TextTrack> initWithText(const std::string& text, const TextStyle& style, uint64_t objectId,
                                                 const CMTimeRange& initialTimeRange, std::string& problem);

  const std::string& text() const { return text_; }
  const TextStyle& style() const { return style_; }
  /// The transform that brings the top left of the text's box there.
  CGAffineTransform transformAt(const CGPoint& position) const;

  bool isContentStatic() const override { return true; }
  /// The size of the picture in pixels of the style.
  CGSize aspectSize() const override { return frame_.size; }
  CGImageRef staticSourceCGImageRef() const override;
  /// {"string": the text, "font": as the style has it, "foregroundColor": a CGColorRef} while the text is shown.
  std::optional<NSDictionary> attrsForTime(const CMTime& time) const override;
  /// While the text is shown the text's one layer, with the picture at position() as that is now, its top left counting in a
  /// superlayer whose geometry is flipped; else null.
  std::shared_ptr<CALayer> layerForTime(const CMTime& time) override;
  std::shared_ptr<CALayer> renderLayerForTime(const CMTime& time) override { return layerForTime(time); }
  void setHidden(bool hidden) override;
  void addInToSuperlayer(const std::shared_ptr<CALayer>& superlayer) override;
  void removeFromSuperlayer() override;
  /// Sets the bounds to where the picture lies from the top left of the text's box, and gives its size.
  CGSize sizeToFit() override;
  std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const override;

 protected:
  TextTrack() = default;

 private:
  bool isShownAt(const CMTime& time) const;
  const std::shared_ptr<CALayer>& currentLayer();

  std::string text_;
  TextStyle style_;
  CGRect frame_;
  mutable CGImageRef image_;
  mutable double imageScale_ = 1;
  mutable CGColorRef imageBackground_;
  std::shared_ptr<CALayer> layer_;  ///< null until somebody asks
};

}  // namespace vidloom
