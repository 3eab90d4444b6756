// Pictures in a tree.
#pragma once

#include <memory>
#include <variant>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

/// What a layer shows; std::monostate: nothing.
using CALayerContents = std::variant<std::monostate, CGImageRef, CVPixelBufferRef>;

/// A rectangle with a picture in it, over which its sublayers lie, the last one on top. A layer's sublayers stand in its bounds'
/// coordinates: origin at the bottom left and y up, unless the geometry is flipped by it or a layer above it. One thread at a time;
/// must not change while it is being drawn.
class CALayer : public std::enable_shared_from_this<CALayer> {
 public:
  static std::shared_ptr<CALayer> layer();
  virtual ~CALayer() = default;

  const CGRect& bounds() const { return bounds_; }
  void setBounds(const CGRect& bounds) { bounds_ = bounds; }
  /// Where the anchor point lies in the superlayer.
  const CGPoint& position() const { return position_; }
  void setPosition(const CGPoint& position) { position_ = position; }
  /// In fractions of the bounds, from their origin on; (0.5, 0.5) unless set. The transform turns around it.
  const CGPoint& anchorPoint() const { return anchorPoint_; }
  void setAnchorPoint(const CGPoint& anchorPoint) { anchorPoint_ = anchorPoint; }
  const CGAffineTransform& affineTransform() const { return transform_; }
  void setAffineTransform(const CGAffineTransform& transform) { transform_ = transform; }
  /// The smallest rectangle of the superlayer that holds the layer.
  CGRect frame() const;
  /// Sets the size of the bounds and the position so that the layer fills that rectangle while it has no transform.
  void setFrame(const CGRect& frame);

  /// 0..1, of the layer and everything in it. Sublayers that overlap show through one another.
  float opacity() const { return opacity_; }
  void setOpacity(float opacity) { opacity_ = opacity; }
  bool isHidden() const { return isHidden_; }
  void setHidden(bool hidden) { isHidden_ = hidden; }
  /// Turns y of the sublayers, and of theirs, upside down. Pictures stay upright.
  bool isGeometryFlipped() const { return isGeometryFlipped_; }
  void setGeometryFlipped(bool flipped) { isGeometryFlipped_ = flipped; }

  /// Stretched over the bounds, upright. A pixel buffer must not be written to any more.
  const CALayerContents& contents() const { return contents_; }
  void setContents(CALayerContents contents) { contents_ = std::move(contents); }

  const std::vector<std::shared_ptr<CALayer>>& sublayers() const { return sublayers_; }
  /// Puts the layer on top of the others, taking it out of where it was. Null, the layer itself and those above it are ignored.
  void addSublayer(const std::shared_ptr<CALayer>& layer);
  void removeFromSuperlayer();
  std::shared_ptr<CALayer> superlayer() const { return superlayer_.lock(); }

  /// From the coordinates of the layer's bounds to those of the superlayer, the superlayer's own flip left aside.
  CGAffineTransform transformToSuperlayer() const;

 protected:
  CALayer() = default;

 private:
  CGRect bounds_;
  CGPoint position_;
  CGPoint anchorPoint_{0.5, 0.5};
  CGAffineTransform transform_ = CGAffineTransformIdentity;
  float opacity_ = 1;
  bool isHidden_ = false;
  bool isGeometryFlipped_ = false;
  CALayerContents contents_;
  std::vector<std::shared_ptr<CALayer>> sublayers_;
  std::weak_ptr<CALayer> superlayer_;
};

}  // namespace vidloom
