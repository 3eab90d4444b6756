// Paints one layer after the other onto a picture.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "vidloom/platform/pixels/LayerPlacement.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PlaneDrawing.h"

namespace vidloom {

/// Paints onto `output`, whose planes must hold what lies beneath. The calls give false where memory has run out.
class LayerPainter {
 public:
  LayerPainter(MutablePicture& output, const DrawingMemory& memory) : output_(output), memory_(memory) {}

  bool paint(const PictureRef& picture, const LayerPlacement& placement);

 private:
  /// A layer on its way to the output: `map` takes the picture to the output, `coverage` stays that of the layer as it was placed.
  struct Drawing {
    PictureRef picture;
    CGAffineTransform map;
    Orientation orientation;
    int opacity;
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
  bool drawPremultiplied(const Drawing& drawing);
  std::shared_ptr<MutablePicture> render(const Picture& picture, const CGAffineTransform& map, int width, int height);

  MutablePicture& output_;
  DrawingMemory memory_;
};

/// True if both read codes alike, whatever their other tags say.
bool sameCodes(const PictureColor& one, const PictureColor& other);

}  // namespace vidloom
