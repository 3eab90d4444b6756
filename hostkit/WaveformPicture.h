// Waveforms as pictures.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom {

/// What to draw: levels or peaks, in the order of time. Where there are more of them than the picture is wide, a column shows the
/// loudest of its levels with their mean before it, or the lowest and the highest of its peaks.
struct WaveformDrawing {
  std::string title = {};        ///< such as the file's name
  std::string description = {};  ///< in a few words
  /// 0 (full scale) to 1 (-50 dB or quieter), as a WaveformAnalyzer gives them: drawn upside down, mirrored about the middle.
  std::span<const float> levels = {};
  /// Minimum and maximum by turns, 16 bits: drawn where there are no levels, on a linear scale.
  std::span<const int16_t> peaks = {};
  double startSeconds = 0;     ///< where the first value begins
  double secondsPerValue = 0;  ///< more than 0
  double endSeconds = 0;       ///< of the time axis, which begins at 0 and never ends before the last value
};

/// 1200 x 340 pixels with axes of time and level. The texts in it are text.
std::string svgOfWaveform(const WaveformDrawing& drawing);
/// The same as a bitmap; null where memory has run out.
CGImageRef pictureOfWaveform(const WaveformDrawing& drawing);

}  // namespace vidloom
