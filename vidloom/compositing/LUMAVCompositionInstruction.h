// The route pipeline that places a timeline; after a build for the custom compositor also the one instruction of the result.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"
#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/compositing/TrackPlacement.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/avfoundation/AVVideoCompositionInstruction.h"

namespace vidloom {

class LUMComposition;

/// Built on one thread; from then on read on the compositor's queue. The delegate may be set at any time.
class LUMAVCompositionInstruction : public AVVideoCompositionInstruction,
                                    public LUMAVRoutePipeline,
                                    public std::enable_shared_from_this<LUMAVCompositionInstruction> {
 public:
  /// Its duration is that of the longest instruction, zero for a null composition.
  static std::shared_ptr<LUMAVCompositionInstruction> initWithComposition(std::shared_ptr<LUMComposition> composition);

  /// From zero to duration().
  CMTimeRange timeRange() const override { return CMTimeRangeMake(kCMTimeZero, duration_); }
  bool enablePostProcessing() const override { return true; }
  bool containsTweening() const override { return true; }
  std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const override { return std::nullopt; }
  CMPersistentTrackID passthroughTrackID() const override { return kCMPersistentTrackID_Invalid; }

  /// The composition track on which the track will lie: the first of that type where nothing overlaps the track's global range
  /// (ranges that touch overlap), else a new one of `comp`. The track is recorded on it. The spelling is part of the interface.
  std::shared_ptr<AVMutableCompositionTrack> preferdAVVideoCompositionTrackForRange(
      const std::shared_ptr<LUMTrack>& track, const AVMediaType& mediaType, const std::shared_ptr<AVMutableComposition>& comp);
  /// The instruction takes no part in the placement.
  void process(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<LUMInstruction>& instruction,
               const std::shared_ptr<AVMutableComposition>& composition) override;
  std::optional<CMPersistentTrackID> pixelBufferTrackIdForTrack(const std::shared_ptr<LUMTrack>& track) const override;
  /// Puts blank footage under the last still of each composition track; earlier ones keep their empty ranges.
  void finish() override;
  /// Lengthens the duration to that of the longest instruction; never shortens it.
  void updateDuration();

  /// Hands the request to the delegate, which finishes it. Without one the request fails with code 202.
  void drawWithRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request);

  std::weak_ptr<LUMAVAsyncDrawDelegate> delegate() const;
  void setDelegate(std::weak_ptr<LUMAVAsyncDrawDelegate> delegate);
  /// In the order of creation. Take the list anew through the non-const form for each edit.
  TrackPlacement::Items& composition_tracks() { return placement_.items(); }
  const TrackPlacement::Items& composition_tracks() const { return placement_.items(); }
  void setComposition_tracks(TrackPlacement::Items composition_tracks) { placement_.setItems(std::move(composition_tracks)); }
  const std::shared_ptr<LUMComposition>& composition() const { return composition_; }
  void setComposition(std::shared_ptr<LUMComposition> composition) { composition_ = std::move(composition); }
  const CMTime& duration() const { return duration_; }
  void setDuration(const CMTime& duration) { duration_ = duration; }

 protected:
  LUMAVCompositionInstruction() = default;

 private:
  mutable std::mutex delegateMutex_;
  std::weak_ptr<LUMAVAsyncDrawDelegate> delegate_;
  TrackPlacement placement_;
  std::shared_ptr<LUMComposition> composition_;
  CMTime duration_ = kCMTimeZero;
};

}  // namespace vidloom
