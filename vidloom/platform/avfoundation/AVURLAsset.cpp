#include "vidloom/platform/avfoundation/AVURLAsset.h"

#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

std::shared_ptr<AVURLAsset> AVURLAsset::initWithURL(const std::filesystem::path& url, const NSDictionary&) {
  const std::shared_ptr<AVURLAsset> asset(new AVURLAsset);
  asset->url_ = url;
  asset->file_ = MediaFile::open(url, MediaLimits{}, &asset->openError_);
  if (!asset->file_) return asset;
  const std::vector<MediaTrack>& tracks = asset->file_->tracks();
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (tracks[i].kind == MediaKind::other) continue;
    const std::shared_ptr<AVAssetTrack> track(new AVAssetTrack);
    track->asset_ = asset;
    track->trackID_ = tracks[i].trackID;
    track->mediaType_ = tracks[i].kind == MediaKind::video ? AVMediaTypeVideo : AVMediaTypeAudio;
    track->file_ = asset->file_;
    track->trackIndex_ = static_cast<int>(i);
    asset->tracks_.push_back(track);
  }
  return asset;
}

CMTime AVURLAsset::duration() const { return file_ ? file_->duration() : kCMTimeZero; }

std::vector<std::shared_ptr<AVAssetTrack>> AVURLAsset::tracks() const { return tracks_; }

CGSize AVURLAsset::naturalSize() const {
  const auto pictures = tracksWithMediaType(AVMediaTypeVideo);
  return pictures.empty() ? CGSizeZero : pictures.front()->naturalSize();
}

AVKeyValueStatus AVURLAsset::statusOfValueForKey(const std::string&, std::optional<NSError>* error) const {
  if (!openError_) return AVKeyValueStatusLoaded;
  if (error) *error = openError_;
  return AVKeyValueStatusFailed;
}

}  // namespace vidloom
