// What there is to draw of a timeline, as it was at one moment.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/coremedia/CMTime.h"
#include "vidloom/platform/corevideo/CVFrameComposer.h"

namespace vidloom {

class LUMComposition;
class LUMTrack;

/// A track with a picture. `layer` maps to pixels of the timeline's render size; that of a media file comes without a picture.
struct SnapshotTrack {
  std::shared_ptr<LUMTrack> marker;  ///< stands for the track where a pipeline is asked: nothing but its id
  CMTime start;
  CMTime end;
  bool isStill = false;
  CVFrameLayer layer;

  bool isVisibleAt(const CMTime& time) const { return CMTimeCompare(start, time) <= 0 && CMTimeCompare(time, end) < 0; }
};

/// Immutable; holds nothing that an edit of the timeline could change.
class TimelineSnapshot {
 public:
  /// Tracks that are to be ignored or have no picture are left out. Lays texts out. On the thread that edits the timeline; a null
  /// timeline shows nothing.
  static std::shared_ptr<const TimelineSnapshot> ofTimeline(const std::shared_ptr<LUMComposition>& timeline);

  /// In the order of instructions and tracks: a later one lies over an earlier one.
  const std::vector<SnapshotTrack>& tracks() const { return tracks_; }

 private:
  TimelineSnapshot() = default;
  std::vector<SnapshotTrack> tracks_;
};

}  // namespace vidloom
