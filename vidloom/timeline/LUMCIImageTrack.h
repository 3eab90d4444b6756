// The track that shows an image-processing image.
#pragma once

#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

/// Lasts as long as its initial range says; trims shorten it. There is no copy of it: copyWithId gives null.
class LUMCIImageTrack : public LUMTrack {
 public:
  static std::shared_ptr<LUMCIImageTrack> initWithId(uint64_t objectId);
  /// The track is made without an image too. Renders the image once, over its extent.
  static std::shared_ptr<LUMCIImageTrack> initWithCIImage(CIImageRef image, uint64_t objectId, const CMTimeRange& initialTimeRange);

  const CIImageRef& image() const { return image_; }
  /// No pixel is transparent. An image without end, or one that cannot be rendered, is not opaque.
  bool isOpaque() const { return isOpaque_; }

  bool isContentStatic() const override { return true; }
  std::shared_ptr<AVAsset> dynamicAsset() const override { return nullptr; }
  bool isOnlyAudioTrack() const override { return false; }
  CIImageRef staticSourceCIImage() const override { return image_; }
  CVPixelBufferRef staticSourceCVPixelBuffer() const override { return nullptr; }
  /// Of the image's extent.
  CGSize aspectSize() const override;
  CMTime assetDuration() const override { return assetDuration_; }
  void updateAssetDuration(const CMTime& assetDuration) override { assetDuration_ = assetDuration; }

 protected:
  LUMCIImageTrack() = default;
  /// The steps of initWithCIImage on a finished object. False: give null.
  bool prepareWithCIImage(CIImageRef image, uint64_t objectId, const CMTimeRange& initialTimeRange);

 private:
  bool isOpaque_ = false;
  CIImageRef image_;
  CMTime assetDuration_;
};

}  // namespace vidloom
