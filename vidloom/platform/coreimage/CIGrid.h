// Image space, whose y points up, and the grid of pixels, whose y points down: image point (x, y) is grid point (x, -y).
#pragma once

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// Each of the two is its own way back.
CGRect flippedRect(const CGRect& rect);
CGAffineTransform flippedTransform(const CGAffineTransform& transform);

/// The samples that the rectangle touches, and those that it covers entirely; at most some millions from the origin.
SampleRect samplesTouched(const CGRect& rect);
SampleRect samplesCovered(const CGRect& rect);
CGRect rectOf(const SampleRect& samples);
SampleRect intersection(const SampleRect& one, const SampleRect& other);
SampleRect moved(const SampleRect& samples, int x, int y);

/// Only moves, by whole samples.
bool isWholeShift(const CGAffineTransform& map);
/// The samples before the map that those in `after` are made of; the map has an inverse.
SampleRect samplesBefore(const CGAffineTransform& map, const SampleRect& after);

}  // namespace vidloom
