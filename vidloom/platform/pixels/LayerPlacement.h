// Where a layer's samples fall in the output.
#pragma once

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/pixels/LayerCoverage.h"
#include "vidloom/platform/pixels/PlaneOrientation.h"

namespace vidloom {

/// The way from a layer's samples to the output's: `map` takes continuous luma coordinates of the picture to those of the output.
/// Edges that are nearly straight or nearly on the grid are put there. Chroma samples lie in the middle of their four luma samples,
/// so halving the translation gives the map of the chroma planes.
struct LayerPlacement {
  CGAffineTransform map;
  bool isStraight = false;  ///< edges run along rows and columns; then `orientation` says how they were turned
  Orientation orientation;
  int opacity = 0;  ///< 1..256; 0: the layer is not drawn
  CGRect shown;     ///< of the picture's samples
  bool isClipped = false;

  static LayerPlacement of(const PictureLayer& layer);

  /// Coverage of the output's luma or chroma samples by what is shown of the layer's picture.
  LayerCoverage coverage(bool chroma) const;
  /// Samples are copied one by one, only moved by whole ones.
  bool isTranslation() const;
};

/// The map of chroma planes that belongs to a map of luma planes.
CGAffineTransform chromaMap(const CGAffineTransform& map);

/// The map of an orientation of a rectangle of that size.
CGAffineTransform orientationMap(const Orientation& orientation, double width, double height);

}  // namespace vidloom
