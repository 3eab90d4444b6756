// Source tracks made of nothing but times, for tests that edit and never decode.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vidloom/platform/avfoundation/AVCompositionTrack.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom::test {

/// A file that exists only as a description.
class DescribedFile : public MediaFile {
 public:
  explicit DescribedFile(std::string name, std::vector<MediaTrack> tracks = {MediaTrack{}})
      : path_(std::move(name)), tracks_(std::move(tracks)) {}
  const std::filesystem::path& path() const override { return path_; }
  const std::string& container() const override { return container_; }
  CMTime duration() const override { return kCMTimeZero; }
  const std::vector<MediaTrack>& tracks() const override { return tracks_; }

 private:
  std::filesystem::path path_;
  std::string container_ = "mov";
  std::vector<MediaTrack> tracks_;
};

/// A source track with the segments that a test gives it.
class DescribedTrack : public AVAssetTrack {
 public:
  static std::shared_ptr<DescribedTrack> withSegments(std::vector<MediaSegment> segments) {
    auto track = std::make_shared<DescribedTrack>();
    track->segments_ = std::move(segments);
    track->mediaType_ = AVMediaTypeVideo;
    track->trackID_ = 1;
    return track;
  }
  /// One stretch of media from zero on.
  static std::shared_ptr<DescribedTrack> ofLength(const CMTime& length, std::shared_ptr<const MediaFile> file) {
    const CMTimeRange all{kCMTimeZero, length};
    return withSegments({{all, all, std::move(file), 0}});
  }
  std::vector<MediaSegment> mediaSegments() const override { return segments_; }
  const MediaTrack* mediaTrack() const override { return nullptr; }

 private:
  std::vector<MediaSegment> segments_;
};

inline CMTime seconds(double value) { return CMTimeMake(static_cast<int64_t>(value * 600 + (value < 0 ? -0.5 : 0.5)), 600); }
inline CMTimeRange range(double start, double duration) { return {seconds(start), seconds(duration)}; }

}  // namespace vidloom::test
