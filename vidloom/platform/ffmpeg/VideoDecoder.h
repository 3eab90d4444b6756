// Pictures of one video track, by media time.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

/// A decoded picture and when it is on screen. Upright transforms are not applied; size is the track's coded size.
struct VideoFrame {
  PictureRef picture;  ///< 8-bit planar 4:2:0, SDR, progressive; alpha where the track has it
  CMTime mediaTime;    ///< its own timestamp, in media time
};

/// Decodes a track and finds the picture on screen at any media time: the one with the greatest timestamp at or before it, before
/// the first picture the first one, after the last the last one. Decodes forward where that is nearer than a seek. One thread
/// at a time.
class VideoDecoder {
 public:
  struct Options {
    int threads = 0;  ///< decoder threads; 0: chosen by the size of the picture
  };
  /// Null with an error that names the file where no decoder can be had.
  static std::unique_ptr<VideoDecoder> open(std::shared_ptr<const MediaFile> file, int trackIndex, const Options& options,
                                            std::optional<NSError>* error);
  virtual ~VideoDecoder() = default;

  /// The picture at `mediaTime` (numeric). Damaged packets are logged with file and time and skipped: the last good picture stays.
  /// Nullopt with an error only where not a single picture can be decoded.
  virtual std::optional<VideoFrame> frameAt(const CMTime& mediaTime, std::optional<NSError>* error) = 0;

  /// Timestamp of the picture that follows the last one given, where it is already known: an invalid time otherwise, positive
  /// infinity at the end. Lets a cursor keep a picture without asking again.
  virtual CMTime nextFrameTime() const = 0;

  /// Makes a running and every later frameAt return soon with an error (AVErrorOperationCancelled). Any thread.
  virtual void cancel() = 0;

  /// Number of seeks so far: for tests and statistics.
  virtual int seekCount() const = 0;
};

}  // namespace vidloom
