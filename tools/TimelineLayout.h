// Where the tracks of a timeline come to lie on composition tracks.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class LUMComposition;
class LUMTrack;

struct LayoutSegment {
  CMTimeRange source;  ///< invalid where the segment is empty
  CMTimeRange target;
  std::shared_ptr<LUMTrack> track;  ///< of the timeline; null where the segment is empty
};

struct LayoutRow {
  int number = 0;  ///< of the composition track, from 1 in the order of the composition
  bool isVideo = false;
  std::vector<LayoutSegment> segments;
  std::vector<std::shared_ptr<LUMTrack>> tracks;  ///< every one that was placed here
};

/// In the order of the composition tracks: with native composition a row's picture lies over those of the rows after it.
std::vector<LayoutRow> layoutOf(const std::shared_ptr<LUMComposition>& timeline);

}  // namespace vidloom
