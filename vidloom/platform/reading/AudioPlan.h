// Which source samples each output sample of a track is made of.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/reading/ExactTime.h"

namespace vidloom {

/// A stretch of output samples that one segment fills.
struct AudioPiece {
  int64_t first = 0, end = 0;  ///< output samples, the end exclusive
  std::shared_ptr<const MediaFile> file;
  int trackIndex = 0;
  /// Source position of sample `first`: a whole frame and the rest of one.
  int64_t sourceFrame = 0;
  double sourceFraction = 0;
  double speed = 1;  ///< source frames per output sample
  /// Whether samples are taken over as they are: same rate, no scaling, and positions that are whole (or were made whole).
  bool isCopy = false;
  /// How the speed glides into that of the piece that continues the sound: `border` is where both meet, as an output sample
  /// with a fraction, and the glide takes halfGlide samples before and after it. Zero: it does not glide.
  double border = 0, halfGlide = 0, speedChange = 0;
  double length = 0;  ///< of the whole segment in output samples, also where the range cuts it
};

/// Lays the segments of a track out on the grid of output samples, sample n standing for rangeStart + n / rate. A sample belongs to
/// the segment that its time lies in. Where a segment goes on exactly where the one before ended in the same source, the positions
/// are continuous and the speed changes over 10 ms around the border; anywhere else the border is a hard cut.
///
/// A source of the output's rate that is not scaled is copied sample by sample; where an edit lies between two samples the whole
/// uninterrupted run of segments is moved to the nearest sample, by half a sample at most.
std::vector<AudioPiece> planAudio(const std::vector<MediaSegment>& segments, const ExactTime& rangeStart, int64_t sampleCount,
                                  int64_t rate);

/// Source position of output sample n of pieces[index], relative to that piece's sourceFrame.
double sourcePosition(const std::vector<AudioPiece>& pieces, size_t index, int64_t n);

}  // namespace vidloom
