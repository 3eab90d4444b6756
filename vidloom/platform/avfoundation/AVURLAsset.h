#pragma once

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

class MediaFile;

/// A media file. Opened at once, by the initialiser's caller. Immutable and safe to share between threads.
class AVURLAsset : public AVAsset {
 public:
  static std::shared_ptr<AVURLAsset> initWithURL(const std::filesystem::path& url, const NSDictionary& options = {});

  const std::filesystem::path& URL() const { return url_; }
  /// Why the file could not be opened; nullopt where it could. Names the file.
  const std::optional<NSError>& openError() const { return openError_; }
  /// The file's core; null where it could not be opened.
  const std::shared_ptr<const MediaFile>& mediaFile() const { return file_; }

  CMTime duration() const override;
  std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override;
  CGSize naturalSize() const override;
  AVKeyValueStatus statusOfValueForKey(const std::string& key, std::optional<NSError>* error) const override;

 protected:
  AVURLAsset() = default;

 private:
  std::filesystem::path url_;
  std::shared_ptr<const MediaFile> file_;
  std::optional<NSError> openError_;
  std::vector<std::shared_ptr<AVAssetTrack>> tracks_;
};

}  // namespace vidloom
