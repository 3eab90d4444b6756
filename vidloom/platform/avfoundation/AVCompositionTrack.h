// Composition tracks: lists of segments without gaps, and the operations that edit them.
#pragma once

#include <optional>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// A segment in published terms: which source range plays where. `timeMapping.source` is in the source asset's time and invalid
/// for an empty segment.
struct AVCompositionTrackSegment {
  CMTimeMapping timeMapping;
  std::string sourceURL;
  CMPersistentTrackID sourceTrackID = kCMPersistentTrackID_Invalid;
  bool isEmpty() const { return !CMTIME_IS_VALID(timeMapping.source.start); }
};

class AVCompositionTrack : public AVAssetTrack {
 public:
  std::vector<MediaSegment> mediaSegments() const override { return segments_; }
  /// The same list without a copy; valid until the track is edited.
  const std::vector<MediaSegment>& segmentList() const { return segments_; }
  /// The same list in published terms.
  std::vector<AVCompositionTrackSegment> segments() const;
  bool isEnabled() const override { return true; }
  CMTimeRange timeRange() const override;
  CGSize naturalSize() const override;
  CGAffineTransform preferredTransform() const override { return CGAffineTransformIdentity; }
  float nominalFrameRate() const override;
  CMTimeScale naturalTimeScale() const override;
  std::vector<CMFormatDescriptionRef> formatDescriptions() const override;
  const MediaTrack* mediaTrack() const override { return nullptr; }

 protected:
  AVCompositionTrack() = default;
  std::vector<MediaSegment> segments_;

 private:
  /// The file's track behind the first segment that is not empty; null without one.
  const MediaTrack* firstMediaTrack() const;
};

/// Edited on one thread. Insertions and removals shift what comes later on the track: work at its end costs the same however long
/// the track is, work in the middle grows with what comes later.
class AVMutableCompositionTrack : public AVCompositionTrack {
 public:
  /// Inserts that range of a source track (of a file or a composition) at its natural rate; what lies at or after `startTime` moves
  /// later, a hole before it is filled with an empty segment. An invalid `startTime` appends. A range longer than the source is cut
  /// to what exists; the source's own empty edits are carried over, those that would end the track dropped. False with an error for
  /// a null track, an invalid or negative range, or where nothing is left; a valid range of zero length changes nothing and is
  /// true.
  bool insertTimeRange(const CMTimeRange& timeRange, const std::shared_ptr<AVAssetTrack>& ofTrack, const CMTime& atTime,
                       std::optional<NSError>* error);
  /// Inside the track: later material moves back by the length. At or past the end, and for an invalid range: nothing.
  void insertEmptyTimeRange(const CMTimeRange& timeRange);
  /// Later material moves up. An empty segment left at the end goes too.
  void removeTimeRange(const CMTimeRange& timeRange);
  /// Stretches what lies in the range to the new duration; later material moves by the difference. A new duration of zero removes
  /// the range; an empty, outside or invalid range and an invalid duration change nothing.
  void scaleTimeRange(const CMTimeRange& timeRange, const CMTime& toDuration);

 private:
  friend class AVMutableComposition;
  AVMutableCompositionTrack() = default;
};

}  // namespace vidloom
