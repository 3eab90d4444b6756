// Rectangles of samples.
#pragma once

namespace vidloom {

/// A rectangle of samples: x0 <= x < x1, y0 <= y < y1.
struct SampleRect {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;

  int width() const { return x1 - x0; }
  int height() const { return y1 - y0; }
  bool isEmpty() const { return x0 >= x1 || y0 >= y1; }
  friend bool operator==(const SampleRect&, const SampleRect&) = default;
};

/// Samples begin <= x < end of a row.
struct SampleSpan {
  int begin = 0, end = 0;

  bool isEmpty() const { return begin >= end; }
};

}  // namespace vidloom
