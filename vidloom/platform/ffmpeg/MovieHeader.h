// What the index of an ISO media file (MP4, MOV, 3GP) says about its tracks, beyond what libav's demuxer passes on.
#pragma once

#include <string>
#include <vector>

#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/ffmpeg/SampleTimes.h"
#include "vidloom/platform/ffmpeg/SourceFile.h"

namespace vidloom {

struct MovieHeaderEdit {
  uint64_t duration = 0;   ///< ticks of the movie
  int64_t mediaTime = -1;  ///< ticks of the media; -1: an empty edit
};

struct MovieHeaderTrack {
  uint32_t trackID = 0;
  uint32_t handler = 0;  ///< 'vide', 'soun', ...
  bool enabled = true;
  CGAffineTransform transform = CGAffineTransformIdentity;  ///< the track's matrix, then the movie's
  int32_t timescale = 1;                                    ///< of the media
  uint32_t format = 0;                                      ///< of the first sample description: 'avc1', 'mp4a', 'encv', ...
  uint32_t pixelAspectWidth = 0, pixelAspectHeight = 0;     ///< zero: not stated
  std::vector<MovieHeaderEdit> edits;
  SampleTimes times;
  int64_t demuxerShift = 0;  ///< ticks that libav's demuxer adds to presentation times: in fragments with negative offsets only
};

/// The index as a whole. Reads nothing but the file itself, and of it only the index.
class MovieHeader {
 public:
  /// Nullopt with *problem in words where there is no index or a limit is broken.
  static std::optional<MovieHeader> read(const SourceFile& file, const MediaLimits& limits, std::string* problem);

  int32_t timescale() const { return timescale_; }
  bool isFragmented() const { return fragmented_; }  ///< samples lie (also) in fragments: their times are not in here
  const std::vector<MovieHeaderTrack>& tracks() const { return tracks_; }

 private:
  bool readMovie(ByteSpan movie, const MediaLimits& limits, std::string* problem);
  void readFirstFragment(const SourceFile& file);
  bool readTrack(ByteSpan body, const MediaLimits& limits, std::string* problem);

  int32_t timescale_ = 1;
  CGAffineTransform transform_ = CGAffineTransformIdentity;
  int64_t fileSize_ = 0;
  bool fragmented_ = false;
  std::vector<MovieHeaderTrack> tracks_;
};

}  // namespace vidloom
