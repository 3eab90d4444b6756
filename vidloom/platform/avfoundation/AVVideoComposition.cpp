#include "vidloom/platform/avfoundation/AVVideoComposition.h"

#include <cmath>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/avfoundation/CIFilterInstruction.h"

namespace vidloom {

namespace {

/// A whole number of frames a second, or 1000/1001 of one, where the rate is that; 1/30 s where it is not known.
CMTime frameDurationOf(const AVAssetTrack& track) {
  const double rate = double{track.nominalFrameRate()};
  if (!(rate > 0)) return CMTimeMake(1, 30);
  for (const int32_t divisor : {1000, 1001}) {
    const double whole = std::round(rate * divisor / 1000);
    if (whole >= 1 && std::abs(rate * divisor / 1000 - whole) < 0.005) {
      return divisor == 1000 ? CMTimeMake(1, static_cast<int32_t>(whole)) : CMTimeMake(1001, static_cast<int32_t>(whole) * 1000);
    }
  }
  constexpr int32_t ticksPerSecond = 90'000;
  return CMTimeMakeWithSeconds(1 / rate, ticksPerSecond);
}

CGSize uprightSizeOf(const AVAssetTrack& track) {
  const CGSize size = track.naturalSize();
  return CGRectApplyAffineTransform(CGRectMake(0, 0, size.width, size.height), track.preferredTransform()).size;
}

}  // namespace

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::videoComposition() {
  return std::make_shared<AVMutableVideoComposition>(AVMutableVideoComposition());
}

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::videoCompositionWithAsset(
    const std::shared_ptr<AVAsset>& asset, AVCIImageFilteringHandler applyingCIFiltersWithHandler) {
  auto composition = videoComposition();
  const auto tracks = asset ? asset->tracksWithMediaType(AVMediaTypeVideo) : std::vector<std::shared_ptr<AVAssetTrack>>{};
  const auto track = !tracks.empty() && tracks.front()->isEnabled() ? tracks.front() : nullptr;
  if (track) {
    composition->setFrameDuration(frameDurationOf(*track));
    composition->setRenderSize(uprightSizeOf(*track));
  }
  composition->setInstructions({std::make_shared<CIFilterInstruction>(track, std::move(applyingCIFiltersWithHandler))});
  return composition;
}

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::copy() const {
  return std::make_shared<AVMutableVideoComposition>(*this);
}

}  // namespace vidloom
