// The track that shows a bitmap.
#pragma once

#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

/// Lasts as long as its initial range says; trims shorten it. There is no copy of it: copyWithId gives null.
class LUMCGImageTrack : public LUMTrack {
 public:
  static std::shared_ptr<LUMCGImageTrack> initWithId(uint64_t objectId);
  /// A null image is logged; the track is made all the same.
  static std::shared_ptr<LUMCGImageTrack> initWithCGImageRef(CGImageRef imageRef, uint64_t objectId,
                                                             const CMTimeRange& initialTimeRange);

  const CGImageRef& imageRef() const { return imageRef_; }
  /// By what the image says of its alpha, whatever its pixels are.
  bool isOpaque() const { return isOpaque_; }
  bool isSRGB() const { return isSRGB_; }

  bool isContentStatic() const override { return true; }
  std::shared_ptr<AVAsset> dynamicAsset() const override { return nullptr; }
  bool isOnlyAudioTrack() const override { return false; }
  CGImageRef staticSourceCGImageRef() const override { return imageRef_; }
  CIImageRef staticSourceCIImage() const override { return nullptr; }
  CVPixelBufferRef staticSourceCVPixelBuffer() const override { return nullptr; }
  /// Of the bitmap, in pixels.
  CGSize aspectSize() const override;
  CMTime assetDuration() const override { return assetDuration_; }
  void updateAssetDuration(const CMTime& assetDuration) override { assetDuration_ = assetDuration; }

 protected:
  LUMCGImageTrack() = default;
  /// The steps of initWithCGImageRef on a finished object. False: give null.
  bool prepareWithCGImageRef(CGImageRef imageRef, uint64_t objectId, const CMTimeRange& initialTimeRange);

 private:
  bool isOpaque_ = false;
  bool isSRGB_ = false;
  CGImageRef imageRef_;
  CMTime assetDuration_;
};

/// Whether the image says that it has no alpha; false for null.
bool isOpaqueImage(const CGImageRef& image);

}  // namespace vidloom
