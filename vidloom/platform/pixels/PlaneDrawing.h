// Draws one plane through any map.
#pragma once

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PlaneSink.h"
#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/ScalePlan.h"

namespace vidloom {

/// What drawing works with.
struct DrawingMemory {
  PicturePool& pool;
  ScalePlanCache& plans;
};

/// Draws the source into the sink's samples `bounds`, by the cheapest way that the map allows. With a coverage only the samples
/// that it touches are drawn. False where memory has run out.
bool drawPlane(const PlaneView& source, const CGAffineTransform& map, const SampleRect& bounds, const LayerCoverage* coverage,
               PlaneSink& sink, const DrawingMemory& memory);

}  // namespace vidloom
