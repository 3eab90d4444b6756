// The track that shows a pixel buffer.
#pragma once

#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

/// Lasts as long as its initial range says; trims shorten it.
class LUMCVPixelBufferTrack : public LUMTrack {
 public:
  static std::shared_ptr<LUMCVPixelBufferTrack> initWithId(uint64_t objectId);
  /// A null buffer is logged; the track is made all the same.
  static std::shared_ptr<LUMCVPixelBufferTrack> initWithCVPixelBuffer(CVPixelBufferRef pixelBuffer, uint64_t objectId,
                                                                      const CMTimeRange& initialTimeRange);

  const CVPixelBufferRef& pixelBuffer() const { return pixelBuffer_; }

  bool isContentStatic() const override { return true; }
  std::shared_ptr<AVAsset> dynamicAsset() const override { return nullptr; }
  bool isOnlyAudioTrack() const override { return false; }
  CGImageRef staticSourceCGImageRef() const override { return nullptr; }
  CVPixelBufferRef staticSourceCVPixelBuffer() const override { return pixelBuffer_; }
  /// Of the buffer, in pixels.
  CGSize aspectSize() const override;
  CMTime assetDuration() const override { return assetDuration_; }
  void updateAssetDuration(const CMTime& assetDuration) override { assetDuration_ = assetDuration; }
  /// Shows the same buffer, with the same speed and crop objects and a user info of its own.
  std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const override;

 protected:
  LUMCVPixelBufferTrack() = default;
  /// The steps of initWithCVPixelBuffer on a finished object. False: give null.
  bool prepareWithCVPixelBuffer(CVPixelBufferRef pixelBuffer, uint64_t objectId, const CMTimeRange& initialTimeRange);

 private:
  CVPixelBufferRef pixelBuffer_;
  CMTime assetDuration_;
};

}  // namespace vidloom
