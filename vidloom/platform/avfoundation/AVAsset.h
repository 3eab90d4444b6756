// Media as a whole: files and compositions.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

enum AVKeyValueStatus : int64_t {
  AVKeyValueStatusUnknown = 0,
  AVKeyValueStatusLoading = 1,
  AVKeyValueStatusLoaded = 2,
  AVKeyValueStatusFailed = 3,
  AVKeyValueStatusCancelled = 4,
};

/// Base of files (AVURLAsset) and compositions (AVComposition).
class AVAsset : public std::enable_shared_from_this<AVAsset> {
 public:
  virtual ~AVAsset() = default;
  /// An AVURLAsset. Never null: a file that cannot be read shows as one without tracks and of zero duration.
  static std::shared_ptr<AVAsset> assetWithURL(const std::filesystem::path& url);

  /// The latest end over the tracks; zero without one. Blocks until known.
  virtual CMTime duration() const = 0;
  virtual std::vector<std::shared_ptr<AVAssetTrack>> tracks() const = 0;
  /// In the file's order, but tracks that the file disables come after the enabled ones. Empty where there is none.
  std::vector<std::shared_ptr<AVAssetTrack>> tracksWithMediaType(const AVMediaType& mediaType) const;
  /// Null for an unknown id.
  std::shared_ptr<AVAssetTrack> trackWithTrackID(CMPersistentTrackID trackID) const;
  virtual CGSize naturalSize() const { return CGSizeZero; }

  /// The state of a value ("duration", "tracks"); fills *error where it failed.
  virtual AVKeyValueStatus statusOfValueForKey(const std::string& key, std::optional<NSError>* error) const;
  /// Calls the handler once, on a background queue, when every key is loaded or has failed.
  virtual void loadValuesAsynchronouslyForKeys(const std::vector<std::string>& keys, std::function<void()> completionHandler);
};

}  // namespace vidloom
