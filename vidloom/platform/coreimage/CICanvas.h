// Pixels on the way from a recipe to its destination.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/BgraPlanes.h"
#include "vidloom/platform/pixels/PlaneDrawing.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// Planes that are multiplied by alpha and lie at a rectangle of the grid.
struct CIRaster {
  SampleRect rect;
  BgraPlaneViews planes;
  std::shared_ptr<const void> owner;
  bool isOpaque = false;

  /// That part, which must lie within.
  CIRaster part(const SampleRect& samples) const;
};

/// Planes that are painted on. Calls give false where memory has run out.
class CICanvas {
 public:
  /// Transparent, at that rectangle of the grid. Nothing where it is empty, larger than 32768 on a side or memory has run out.
  static std::optional<CICanvas> make(const SampleRect& rect, const DrawingMemory& memory);

  const SampleRect& rect() const { return rect_; }
  const MutableBgraPlaneViews& planes() const { return planes_; }
  CIRaster raster() const;

  /// Paints what lies at `visible` of the raster, which goes through `map`, over the samples within `clip`.
  bool paint(CIRaster raster, CGRect visible, const CGAffineTransform& map, const SampleRect& clip, const DrawingMemory& memory);
  void fill(const std::array<uint8_t, 4>& premultipliedBGRA, const SampleRect& clip);
  /// Every sample becomes the nearest one of the raster.
  void extend(const CIRaster& raster);

 private:
  bool draw(const CIRaster& raster, const CGAffineTransform& map, const SampleRect& bounds, const LayerCoverage& coverage,
            const DrawingMemory& memory);
  void drawAlpha(const PlaneView& mask, const SampleRect& bounds, const LayerCoverage& coverage);

  SampleRect rect_;
  MutableBgraPlaneViews planes_;
  std::shared_ptr<uint8_t> bytes_;
};

}  // namespace vidloom
