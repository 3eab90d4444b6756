// The reader and the writer of one export, and how they are set up.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vidloom/compositing/LUMAVCompositionData.h"
#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/avfoundation/AVAssetWriter.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// Set up on one thread; parts() may be asked on any. The operations that return an error stop the set-up with it: its text is what
/// the log gets, the platform's own error (where there is one) is the underlying one.
class RenderSession {
 public:
  struct Parts {
    dispatch_queue_t serialQueue;
    std::shared_ptr<AVAssetReader> reader;
    std::shared_ptr<AVAssetReaderVideoCompositionOutput> videoOutput;
    std::shared_ptr<AVAssetReaderAudioMixOutput> audioOutput;  ///< null: the export has no sound
    std::shared_ptr<AVAssetWriter> writer;
    std::shared_ptr<AVAssetWriterInput> videoInput;
    std::shared_ptr<AVAssetWriterInput> audioInput;
  };

  explicit RenderSession(std::shared_ptr<LUMAVCompositionData> data) : data_(std::move(data)) {}
  Parts parts() const;

  std::optional<NSError> makeWriter(const std::filesystem::path& url, const VideoEncoderOptions& options);
  std::optional<NSError> makeReader(const CMTimeRange& range);
  std::optional<NSError> selectTracks();
  /// `drawTimeout`: see AVAssetReaderVideoCompositionOutput::setCompositorTimeout().
  std::optional<NSError> addVideoOutput(const CMTime& drawTimeout);
  std::optional<NSError> addVideoInput(const CGSize& renderSize, bool expectsMediaDataInRealTime);
  /// Where the reader refuses the output, the export goes on without sound.
  void addAudioOutput(const std::shared_ptr<AVMutableAudioMix>& audioMix);
  /// Where the writer refuses the input, the export goes on without sound; the output stays with the reader.
  void addAudioInput(bool expectsMediaDataInRealTime);
  /// Starts the writer, then the reader, whatever the writer answered.
  std::optional<NSError> start();
  /// What there is to append, in seconds, over both streams.
  double totalSeconds() const;

  /// Ends reading and writing. Waits for an append that is running.
  void cancel() const;
  /// The same, later and elsewhere; returns at once.
  void cancelInBackground() const;

 private:
  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change(parts_);
  }

  const std::shared_ptr<LUMAVCompositionData> data_;
  std::vector<std::shared_ptr<AVAssetTrack>> videoTracks_, audioTracks_;
  mutable std::mutex mutex_;
  Parts parts_;
};

}  // namespace vidloom
