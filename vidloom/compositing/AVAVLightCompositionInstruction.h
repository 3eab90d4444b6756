// The route pipeline for hosts that place tracks themselves: made from a frame rate alone, without a timeline and without drawing.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/compositing/TrackPlacement.h"
#include "vidloom/platform/avfoundation/AVVideoCompositionInstruction.h"

namespace vidloom {

/// The doubled AVAV is part of the interface. Used on the thread that builds; afterwards it may be asked from any thread. It draws
/// nothing: a LUMAVComposition fails the requests that come with it.
class AVAVLightCompositionInstruction : public AVVideoCompositionInstruction, public LUMAVRoutePipeline {
 public:
  static std::shared_ptr<AVAVLightCompositionInstruction> initFPS(uint64_t fps);

  /// Always all-zero, not even valid.
  CMTimeRange timeRange() const override { return timeRange_; }
  bool enablePostProcessing() const override { return true; }
  bool containsTweening() const override { return true; }
  std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const override { return std::nullopt; }
  CMPersistentTrackID passthroughTrackID() const override { return kCMPersistentTrackID_Invalid; }

  /// As LUMAVCompositionInstruction's; the spelling is part of the interface.
  std::shared_ptr<AVMutableCompositionTrack> preferdAVVideoCompositionTrackForRange(
      const std::shared_ptr<LUMTrack>& track, const AVMediaType& mediaType, const std::shared_ptr<AVMutableComposition>& comp);
  /// Writes a line to the system log for each picture that it inserts or fails to insert.
  void process(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<LUMInstruction>& instruction,
               const std::shared_ptr<AVMutableComposition>& composition) override;
  std::optional<CMPersistentTrackID> pixelBufferTrackIdForTrack(const std::shared_ptr<LUMTrack>& track) const override;
  /// The object id itself where a video track of the composition carries a track with it, else nothing. Takes no composition
  /// track's id, whatever the name says.
  std::optional<uint64_t> trackIdForPixelBufferTrackId(uint64_t objectId) const;
  /// Puts blank footage of fps() under the last still of each composition track.
  void finish() override;

  uint64_t fps() const { return fps_; }
  /// In the order of creation. Take the list anew through the non-const form for each edit.
  TrackPlacement::Items& composition_tracks() { return placement_.items(); }
  const TrackPlacement::Items& composition_tracks() const { return placement_.items(); }
  void setComposition_tracks(TrackPlacement::Items composition_tracks) { placement_.setItems(std::move(composition_tracks)); }

 protected:
  AVAVLightCompositionInstruction() = default;

 private:
  uint64_t fps_ = 0;
  TrackPlacement placement_;
  CMTimeRange timeRange_{};
};

}  // namespace vidloom
