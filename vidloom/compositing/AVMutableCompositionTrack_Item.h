// A composition track and the timeline tracks that were placed on it.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/avfoundation/AVCompositionTrack.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"

namespace vidloom {

class LUMTrack;

class AVMutableCompositionTrack_Item {
 public:
  /// Begins without inner tracks.
  static std::shared_ptr<AVMutableCompositionTrack_Item> initWithTrack(std::shared_ptr<AVMutableCompositionTrack> track,
                                                                       AVMediaType mediaType);

  /// In the order of placement.
  std::vector<std::shared_ptr<LUMTrack>>& innerTracks() { return innerTracks_; }
  const std::vector<std::shared_ptr<LUMTrack>>& innerTracks() const { return innerTracks_; }
  void setInnerTracks(std::vector<std::shared_ptr<LUMTrack>> innerTracks) { innerTracks_ = std::move(innerTracks); }
  const std::shared_ptr<AVMutableCompositionTrack>& track() const { return track_; }
  void setTrack(std::shared_ptr<AVMutableCompositionTrack> track) { track_ = std::move(track); }
  /// AVMediaTypeVideo or AVMediaTypeAudio.
  const AVMediaType& mediaType() const { return mediaType_; }
  void setMediaType(AVMediaType mediaType) { mediaType_ = std::move(mediaType); }

 protected:
  AVMutableCompositionTrack_Item() = default;

 private:
  std::vector<std::shared_ptr<LUMTrack>> innerTracks_;
  std::shared_ptr<AVMutableCompositionTrack> track_;
  AVMediaType mediaType_;
};

}  // namespace vidloom
