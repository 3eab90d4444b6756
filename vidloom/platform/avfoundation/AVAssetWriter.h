// Writing one movie file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetWriterInput.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom {

class AVAssetWriterSession;

enum AVAssetWriterStatus : int64_t {
  AVAssetWriterStatusUnknown = 0,
  AVAssetWriterStatusWriting = 1,
  AVAssetWriterStatusCompleted = 2,
  AVAssetWriterStatusFailed = 3,
  AVAssetWriterStatusCancelled = 4,
};

/// One writer, one file. status() and error() may be read from any thread. The destination holds the finished movie or nothing: a
/// writer that fails, is cancelled or is released while writing leaves nothing behind.
class AVAssetWriter : public std::enable_shared_from_this<AVAssetWriter> {
 public:
  /// Neither creates nor touches a file. Null with an error for an empty URL, an unknown type or a folder that is not there.
  static std::shared_ptr<AVAssetWriter> initWithURL(const std::filesystem::path& url, const AVFileType& fileType,
                                                    std::optional<NSError>* error);
  ~AVAssetWriter();

  AVAssetWriterStatus status() const;
  std::optional<NSError> error() const;  ///< set in status failed only
  const std::filesystem::path& outputURL() const { return url_; }

  /// Before startWriting, and once for each media type. False for settings that cannot be written: video is H.264 with sides of 2
  /// to 16384 pixels; sound is AAC with 1 to 6 or 8 channels, 4000 to 1000000 bits a second and one of the sample rates 7350, 8000,
  /// 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200 and 96000.
  bool canAddInput(const std::shared_ptr<AVAssetWriterInput>& input) const;
  void addInput(const std::shared_ptr<AVAssetWriterInput>& input);
  std::vector<std::shared_ptr<AVAssetWriterInput>> inputs() const;
  /// Handed to the H.264 encoder; takes effect before startWriting.
  void setVideoEncoderOptions(const VideoEncoderOptions& options);

  /// False, with status failed and an error, where a file exists at the URL (AVErrorFileAlreadyExists) or none can be made.
  bool startWriting();
  /// Once, after startWriting and before any append: samples of time T play at T - startTime.
  void startSessionAtSourceTime(const CMTime& startTime);
  /// Returns at once; ends every input, completes the file in the background and calls the handler on some queue, also on failure.
  /// Keeps the writer alive until then.
  void finishWritingWithCompletionHandler(std::function<void()> handler);
  /// Nothing in status completed or failed; else ends the writing (a running append finishes or fails), deletes what was made and
  /// returns with status cancelled.
  void cancelWriting();

 private:
  AVAssetWriter() = default;

  std::filesystem::path url_;
  std::shared_ptr<AVAssetWriterSession> session_;
  dispatch_queue_t queue_;  ///< finishes the file
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<AVAssetWriterInput>> inputs_;
  VideoEncoderOptions encoderOptions_;
};

}  // namespace vidloom
