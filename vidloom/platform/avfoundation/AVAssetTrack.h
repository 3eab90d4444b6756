// One track of a file or a composition.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMFormatDescription.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class AVAsset;
class MediaFile;
struct MediaTrack;

/// A stretch of a track and the media that fills it: `target` in the time of the asset that the track belongs to, `media` in the
/// media time of track number `trackIndex` of `file`. Rate = media.duration / target.duration.
struct MediaSegment {
  CMTimeRange target;
  CMTimeRange media;                      ///< invalid where the segment is empty
  std::shared_ptr<const MediaFile> file;  ///< null where the segment is empty
  int trackIndex = 0;
  bool isEmpty() const { return file == nullptr; }
};

/// Base of the tracks of files (made by AVURLAsset) and of compositions (AVCompositionTrack).
class AVAssetTrack : public std::enable_shared_from_this<AVAssetTrack> {
 public:
  virtual ~AVAssetTrack() = default;

  /// The asset; null when it is gone. The track itself stays usable: it shares the file's core.
  virtual std::shared_ptr<AVAsset> asset() const { return asset_.lock(); }
  CMPersistentTrackID trackID() const { return trackID_; }
  const AVMediaType& mediaType() const { return mediaType_; }
  virtual bool isEnabled() const;
  /// In asset time. Starts above zero where the track begins with an empty edit.
  virtual CMTimeRange timeRange() const;
  /// The stored picture at its display size, before preferredTransform; zero for sound.
  virtual CGSize naturalSize() const;
  virtual CGAffineTransform preferredTransform() const;
  virtual float nominalFrameRate() const;
  virtual CMTimeScale naturalTimeScale() const;
  virtual float preferredVolume() const { return 1.0f; }
  virtual std::vector<CMFormatDescriptionRef> formatDescriptions() const;
  /// What fills the track, in order, without gaps, the first at zero. The form in which readers take a track.
  virtual std::vector<MediaSegment> mediaSegments() const;
  /// The file's own description of the track; null for a composition's track.
  virtual const MediaTrack* mediaTrack() const;

 protected:
  AVAssetTrack() = default;
  /// One description, none for null and for what is neither picture nor sound.
  static std::vector<CMFormatDescriptionRef> formatDescriptionsOf(const MediaTrack* media);
  friend class AVURLAsset;
  std::weak_ptr<AVAsset> asset_;
  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  AVMediaType mediaType_;
  std::shared_ptr<const MediaFile> file_;
  int trackIndex_ = 0;
};

}  // namespace vidloom
