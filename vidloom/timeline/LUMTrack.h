// The base of every piece of media on a timeline: its identity, place, trims, speed, crop and transform.
#pragma once

#include <cstdint>
#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

class AVAsset;
class LUMCropData;
class LUMScaleContext;

/// Hosts may derive from it. Edited on one thread; not while it is rendered or played.
class LUMTrack : public std::enable_shared_from_this<LUMTrack> {
 public:
  /// Null where the id registry refuses the id, which it never does.
  static std::shared_ptr<LUMTrack> initWithId(uint64_t objectId);
  virtual ~LUMTrack() = default;

  uint64_t objectId() const { return objectId_; }
  /// Renderers skip the track.
  bool ignoreRendering() const { return ignoreRendering_; }
  void setIgnoreRendering(bool ignoreRendering) { ignoreRendering_ = ignoreRendering; }
  const std::shared_ptr<LUMCropData>& cropData() const { return cropData_; }
  void setCropData(std::shared_ptr<LUMCropData> cropData) { cropData_ = std::move(cropData); }
  /// The speed; null: as recorded.
  const std::shared_ptr<LUMScaleContext>& scaleContext() const { return scaleContext_; }
  void setScaleContext(std::shared_ptr<LUMScaleContext> scaleContext) { scaleContext_ = std::move(scaleContext); }
  bool isScaled() const { return scaleContext_ != nullptr; }
  /// The host's own.
  NSDictionary& userInfo() { return userInfo_; }
  const NSDictionary& userInfo() const { return userInfo_; }

  /// Where the track begins, from its instruction's start.
  const CMTime& start() const { return start_; }
  void setStart(const CMTime& start) { start_ = start; }
  /// What is cut from the head and the tail of the content. More than there is gives negative durations.
  const CMTime& leftTrimOffset() const { return leftTrimOffset_; }
  void setLeftTrimOffset(const CMTime& leftTrimOffset) { leftTrimOffset_ = leftTrimOffset; }
  const CMTime& rightTrimOffset() const { return rightTrimOffset_; }
  void setRightTrimOffset(const CMTime& rightTrimOffset) { rightTrimOffset_ = rightTrimOffset; }
  /// Never assigned: an all-zero, invalid time.
  const CMTime& boundaryDuration() const { return boundaryDuration_; }
  /// Where the picture is placed on the output.
  const CGAffineTransform& transform() const { return transform_; }
  void setTransform(const CGAffineTransform& transform) { transform_ = transform; }

  /// The length of the content without its trims, at its recorded speed.
  CMTime internalDuration() const;
  /// The used part of the content, in content time.
  CMTimeRange trackInnerTimeRange() const;
  /// Where the content lies in its instruction, speed left out.
  virtual CMTimeRange trackGlobalTimeRange() const;
  /// The length on the timeline: the sum of the scaled segments, without any the internal duration.
  CMTime duration() const;

  virtual bool isContentStatic() const { return false; }
  /// The media file; null where there is none.
  virtual std::shared_ptr<AVAsset> dynamicAsset() const { return nullptr; }
  virtual bool isOnlyAudioTrack() const { return isOnlyAudioTrack_; }
  virtual CGImageRef staticSourceCGImageRef() const { return nullptr; }
  virtual CVPixelBufferRef staticSourceCVPixelBuffer() const { return nullptr; }
  virtual CIImageRef staticSourceCIImage() const { return staticSourceCIImage_; }
  /// The size of the picture as recorded.
  virtual CGSize aspectSize() const { return aspectSize_; }
  /// The size of the picture after its transform.
  virtual CGSize transformSize() const { return CGSizeZero; }
  virtual CGAffineTransform preferredTransform() const { return CGAffineTransformIdentity; }
  /// The length of the untrimmed content.
  virtual CMTime assetDuration() const { return assetDuration_; }
  virtual void updateAssetDuration(const CMTime& assetDuration) { assetDuration_ = assetDuration; }
  virtual CMTime audioDuration() const { return internalDuration(); }
  virtual CMTimeRange audioTrackInnerTimeRange() const { return trackInnerTimeRange(); }
  /// Only tracks of media files may be asked; the base form stops the program.
  virtual CMTimeRange audioTrackGlobalTimeRange() const;
  /// A copy under another id; null where a class offers none.
  virtual std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const;

 protected:
  LUMTrack() = default;
  /// The steps of initWithId on a finished object, for the initialisers of derived classes. False: give null.
  bool prepareWithId(uint64_t objectId);

  bool isOnlyAudioTrack_ = false;
  CIImageRef staticSourceCIImage_;
  CGSize aspectSize_;

 private:
  bool ignoreRendering_ = false;
  uint64_t objectId_ = 0;
  std::shared_ptr<LUMCropData> cropData_;
  std::shared_ptr<LUMScaleContext> scaleContext_;
  NSDictionary userInfo_;
  CMTime assetDuration_;
  CMTime start_;
  CMTime leftTrimOffset_;
  CMTime rightTrimOffset_;
  CMTime boundaryDuration_;
  CGAffineTransform transform_;
};

}  // namespace vidloom
