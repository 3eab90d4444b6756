// Spectrograms.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom {

/// Gathers the spectra of one block of sound after the other into a picture of 1180 x 630 pixels: time to the right, frequency, on
/// a linear scale, upwards, power as colour. Memory does not grow with the number of blocks. One thread at a time.
class SpectrumPicture {
 public:
  struct Setup {
    std::string title;        ///< such as the file's name
    std::string description;  ///< in a few words
    double soundStartSeconds = 0, soundEndSeconds = 0;
    double endSeconds = 0;                      ///< of the time axis, which begins at 0
    double hopSeconds = 0;                      ///< from one block to the next
    double minFrequency = 0, maxFrequency = 0;  ///< of the frequency axis, in Hz
    std::vector<double> bandEdges;              ///< in Hz, rising: one more than there are powers
    double fullScaleSinePower = 1;              ///< 0 dB
  };

  explicit SpectrumPicture(Setup setup);
  /// The powers of the block that has its middle there, in the order of time. They are shown from half a hop before to half a hop
  /// after it; the first and the last up to the sound's ends. A column of pixels that several blocks fall into shows the largest
  /// power of each, and so does a row of several bands.
  void add(std::span<const float> powers, double middleSeconds);
  /// Null where memory has run out.
  CGImageRef picture() const;

 private:
  struct BandRange {
    size_t begin = 0, end = 0;
  };
  void makeRows();
  double columnOf(double seconds) const;
  static void raise(std::vector<float>& cells, std::span<const float> rows, double fromColumn, double toColumn);

  Setup setup_;
  double axisEnd_ = 0;
  std::vector<BandRange> bandsOfRows_;  ///< from the lowest frequency
  std::vector<float> cells_;            ///< column by column; below 0: no sound there
  std::vector<float> lastRows_;         ///< of the block before
  double reachedSeconds_ = 0;
};

}  // namespace vidloom
