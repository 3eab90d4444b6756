// A media file as we know it after opening: tracks, times, edits and tags. Shared by assets, compositions and readers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSError.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// What is refused, each with an error that says so. The defaults fit real files; hostile ones run into them.
struct MediaLimits {
  int64_t maxPixels = 8192LL * 8192;  ///< of one picture
  int maxTracks = 64;
  int64_t maxSamplesPerTrack = 20'000'000;  ///< entries of a sample table
  int maxChannels = 64;
};

enum class MediaKind : uint8_t { video, audio, other };

/// One entry of a track's edit list, in the order of the list: from `target.start` of the asset on, the media from
/// `mediaStart` on is shown for `target.duration`. Files without an edit list have one entry for the whole track.
struct MediaEdit {
  CMTimeRange target;  ///< asset time
  CMTime mediaStart;   ///< the track's own media time (as the decoders count it); invalid: an empty edit, nothing is shown
  bool isEmpty() const { return !CMTIME_IS_VALID(mediaStart); }
};

/// A track of a file. Immutable.
struct MediaTrack {
  int32_t trackID = 0;
  int streamIndex = 0;  ///< the demuxer's number
  MediaKind kind = MediaKind::other;
  std::string codec;  ///< FFmpeg's name: "h264", "aac", ...
  bool enabled = true;
  CMTimeScale naturalTimeScale = 600;
  CMTimeRange timeRange = kCMTimeRangeZero;  ///< asset time: from the end of a leading empty edit to the end of the last edit
  std::vector<MediaEdit> edits;              ///< without gaps, first at zero
  // Video
  CGSize naturalSize;  ///< the stored picture at its display size: pixel aspect applied, before preferredTransform
  int codedWidth = 0, codedHeight = 0;
  CGAffineTransform preferredTransform = CGAffineTransformIdentity;
  PictureColor color;  ///< what the frames are after decoding to 8-bit SDR; untagged ones filled in by size
  bool colorIsTagged = false;
  double nominalFrameRate = 0;
  bool variableFrameRate = false;
  bool hasAlpha = false;
  bool interlaced = false;
  bool highDynamicRange = false;
  // Audio
  double sampleRate = 0;  ///< of the decoded sound
  int channels = 0;
};

/// An opened and understood file. Immutable and safe to share between threads; decoders are opened on it separately and each has
/// a demuxer of its own.
class MediaFile {
 public:
  /// Opens `path` through a reader of our own: nothing else is ever opened (no network, playlists, references). An error has
  /// domain "AVFoundationErrorDomain" with the published code and names the file and the cause in its description; an
  /// unreadable path carries the POSIX error under NSUnderlyingErrorKey. Blocks; may scan the whole file where it lacks a duration.
  static std::shared_ptr<const MediaFile> open(const std::filesystem::path& path, const MediaLimits& limits,
                                               std::optional<NSError>* error);
  virtual ~MediaFile() = default;

  virtual const std::filesystem::path& path() const = 0;
  virtual const std::string& container() const = 0;  ///< FFmpeg's short name: "mov,mp4,m4a,3gp,3g2,mj2"
  virtual CMTime duration() const = 0;               ///< latest end over the tracks; zero without one
  virtual const std::vector<MediaTrack>& tracks() const = 0;
};

}  // namespace vidloom
