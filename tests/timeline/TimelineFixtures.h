// Files that are nothing but tracks with a length, a size and a transform.
#pragma once

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "vidloom/platform/avfoundation/AVAsset.h"

namespace vidloom::test {

inline CMTime seconds(double value) { return CMTimeMake(std::llround(value * 600), 600); }
inline CMTimeRange range(double start, double duration) { return {seconds(start), seconds(duration)}; }

class DescribedAssetTrack : public AVAssetTrack {
 public:
  DescribedAssetTrack(AVMediaType mediaType, const CMTimeRange& timeRange, const CGSize& size = {},
                      const CGAffineTransform& transform = CGAffineTransformIdentity)
      : timeRange_(timeRange), size_(size), transform_(transform) {
    mediaType_ = std::move(mediaType);
  }
  CMTimeRange timeRange() const override { return timeRange_; }
  CGSize naturalSize() const override { return size_; }
  CGAffineTransform preferredTransform() const override { return transform_; }

 private:
  CMTimeRange timeRange_;
  CGSize size_;
  CGAffineTransform transform_;
};

class DescribedAsset : public AVAsset {
 public:
  explicit DescribedAsset(std::vector<std::shared_ptr<AVAssetTrack>> tracks) : tracks_(std::move(tracks)) {}
  CMTime duration() const override { return kCMTimeZero; }
  std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override { return tracks_; }

 private:
  std::vector<std::shared_ptr<AVAssetTrack>> tracks_;
};

inline std::shared_ptr<AVAssetTrack> videoOf(double lengthSeconds, const CGSize& size = {1920, 1080},
                                             const CGAffineTransform& transform = CGAffineTransformIdentity) {
  return std::make_shared<DescribedAssetTrack>(AVMediaTypeVideo, range(0, lengthSeconds), size, transform);
}
inline std::shared_ptr<AVAssetTrack> audioOf(double lengthSeconds) {
  return std::make_shared<DescribedAssetTrack>(AVMediaTypeAudio, range(0, lengthSeconds));
}
inline std::shared_ptr<AVAsset> assetOf(std::vector<std::shared_ptr<AVAssetTrack>> tracks) {
  return std::make_shared<DescribedAsset>(std::move(tracks));
}

}  // namespace vidloom::test
