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
  /// Sets the bounds to where the picture lies from the top left of the text's box, and gives its size.
  CGSize sizeToFit() override;
  std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const override;

 protected:
  TextTrack() = default;

 private:
  std::string text_;
  TextStyle style_;
  CGRect frame_;
  mutable CGImageRef image_;
  mutable double imageScale_ = 1;
  mutable CGColorRef imageBackground_;
};

}  // namespace vidloom
