// Paints one layer after the other onto a picture.
#pragma once

#include <array>
#include <memory>
#include <utility>

#include "vidloom/platform/pixels/LayerPlacement.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PlaneDrawing.h"

namespace vidloom {

/// Paints onto `output`, whose planes must hold what lies beneath. The calls give false where memory has run out.
class LayerPainter {
 public:
  LayerPainter(MutablePicture& output, const DrawingMemory& memory) : output_(output), memory_(memory) {}

  bool paint(const PictureRef& picture, const LayerPlacement& placement);

  /// The next layer, which must cover all of the output, lies over this picture and not over what the output holds. The picture
  /// has the output's size and colours.
  void setBeneath(PictureRef picture) { beneath_ = std::move(picture); }

 private:
  /// A layer on its way to the output: `map` takes the picture to the output, `coverage` stays that of the layer as it was placed.
  struct Drawing {
    PictureRef picture;
    CGAffineTransform map;
    Orientation orientation;
    int opacity;
    bool isClipped;
    std::array<LayerCoverage, 2> coverage;
    std::array<SampleRect, 2> bounds;
  };

  bool paintOpaque(Drawing drawing, bool straight);
  bool paintWithAlpha(Drawing drawing, bool straight);
  bool turnIntoOutput(const Drawing& drawing);
  bool settle(Drawing& drawing, bool recolor);
  bool turn(Drawing& drawing);
  bool recolor(Drawing& drawing);
  bool drawPlanes(const Drawing& drawing);
  bool drawStraight(const Drawing& drawing);
  bool drawPremultiplied(const Drawing& drawing);
  PlaneSink sinkFor(const Drawing& drawing, int plane);
  PlaneView beneath(int plane) { return beneath_ ? planeOf(*beneath_, plane) : planeOf(output_, plane).view(); }
  std::shared_ptr<MutablePicture> render(const Picture& picture, const CGAffineTransform& map, int width, int height);

  MutablePicture& output_;
  DrawingMemory memory_;
  PictureRef beneath_;
};

/// True if both read codes alike, whatever their other tags say.
bool sameCodes(const PictureColor& one, const PictureColor& other);

}  // namespace vidloom
