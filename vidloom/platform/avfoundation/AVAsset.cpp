#include "vidloom/platform/avfoundation/AVAsset.h"

#include <algorithm>

#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

std::shared_ptr<AVAsset> AVAsset::assetWithURL(const std::filesystem::path& url) { return AVURLAsset::initWithURL(url); }

std::vector<std::shared_ptr<AVAssetTrack>> AVAsset::tracksWithMediaType(const AVMediaType& mediaType) const {
  auto found = tracks();
  std::erase_if(found, [&](const auto& track) { return track->mediaType() != mediaType; });
  std::stable_partition(found.begin(), found.end(), [](const auto& track) { return track->isEnabled(); });
  return found;
}

std::shared_ptr<AVAssetTrack> AVAsset::trackWithTrackID(CMPersistentTrackID trackID) const {
  for (const auto& track : tracks()) {
    if (track->trackID() == trackID) return track;
  }
  return nullptr;
}

AVKeyValueStatus AVAsset::statusOfValueForKey(const std::string&, std::optional<NSError>*) const { return AVKeyValueStatusLoaded; }

void AVAsset::loadValuesAsynchronouslyForKeys(const std::vector<std::string>&, std::function<void()> completionHandler) {
  if (!completionHandler) return;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), std::move(completionHandler));
}

}  // namespace vidloom
