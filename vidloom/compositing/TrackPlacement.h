// Lays timeline tracks onto the tracks of a composition: what every route pipeline shares.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/compositing/AVMutableCompositionTrack_Item.h"
#include "vidloom/compositing/PlacementIndex.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

class LUMScaleTime;
class LUMTrack;

/// Used on one thread, except videoItemOf and videoTrackIDOf, which any thread may ask once the placement is finished.
class TrackPlacement {
 public:
  using Items = std::vector<std::shared_ptr<AVMutableCompositionTrack_Item>>;

  /// In the order of creation. Who edits the list or its items takes it anew through the non-const form each time: the next
  /// placement then looks at everything again.
  Items& items() {
    indexed_ = false;
    return items_;
  }
  const Items& items() const { return items_; }
  void setItems(Items items);

  /// The first composition track of that type on which nothing overlaps the track's global range, else a new one of `composition`.
  /// The track is recorded on it.
  std::shared_ptr<AVMutableCompositionTrack> trackFor(const std::shared_ptr<LUMTrack>& track, const AVMediaType& mediaType,
                                                      const std::shared_ptr<AVMutableComposition>& composition);
  /// Places picture and sound. `videoInserted` (may be empty) hears of each insertion of a source's picture before it is scaled.
  using VideoInserted = std::function<void(const AVMutableCompositionTrack& onTrack)>;
  void place(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVMutableComposition>& composition,
             const VideoInserted& videoInserted = {});
  /// Puts blank footage of that frame rate under the last still of each composition track.
  void fillStillSlots(uint64_t fps);
  /// The last video track that carries a track with that object id; null where none does.
  const AVMutableCompositionTrack_Item* videoItemOf(uint64_t objectId) const;
  std::optional<CMPersistentTrackID> videoTrackIDOf(const std::shared_ptr<LUMTrack>& track) const;

 private:
  using ScaleTimes = std::vector<LUMScaleTime>;
  /// Row n of `rows` stands for items[n].
  struct Lane {
    Items items;
    PlacementIndex rows;
  };
  Lane* laneFor(const AVMediaType& mediaType);
  void indexAgain();
  void placeVideo(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVAssetTrack>& source, const ScaleTimes& scaleTimes,
                  const std::shared_ptr<AVMutableComposition>& composition, const VideoInserted& videoInserted);
  void placeAudio(const std::shared_ptr<LUMTrack>& track, const std::shared_ptr<AVAssetTrack>& source, const ScaleTimes& scaleTimes,
                  const std::shared_ptr<AVMutableComposition>& composition);
  static void fillStillSlot(AVMutableCompositionTrack& slotTrack, const CMTimeRange& slot, const std::shared_ptr<AVAsset>& footage);

  Items items_;
  Lane video_;
  Lane audio_;
  bool indexed_ = true;
};

}  // namespace vidloom
