// One track of a movie that is being written.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

class AVAssetWriter;
class AVAssetWriterSession;
class AVMediaDataRequest;
class AVSampleFeed;
class MovieWriter;

class AVAssetWriterInput : public std::enable_shared_from_this<AVAssetWriterInput> {
 public:
  /// Video settings need codec, width and height, audio settings format id, rate and channels; numbers of any type. Input with
  /// settings that do not fit cannot be added to a writer.
  static std::shared_ptr<AVAssetWriterInput> initWithMediaType(const AVMediaType& mediaType, const NSDictionary& outputSettings);
  ~AVAssetWriterInput();

  const AVMediaType& mediaType() const;
  const NSDictionary& outputSettings() const;
  /// True: the input is never held back for interleaving.
  bool expectsMediaDataInRealTime() const;
  void setExpectsMediaDataInRealTime(bool value);

  /// Whether samples may be appended now: not before the session has started, not after the input was marked as finished. An input
  /// that belongs to no writer, or to one that has failed or was cancelled, is ready, so that a client that waits for readiness
  /// learns of it. Any thread.
  bool isReadyForMoreMediaData() const;
  /// Takes the sample: the pixels are encoded or copied before it returns. False where the writer is not writing or the sample
  /// cannot be used (the writer then fails with an error that names the time). Times must increase.
  bool appendSampleBuffer(const CMSampleBufferRef& sampleBuffer);
  /// No more samples will come. Harmless when repeated.
  void markAsFinished();
  /// Calls the block on the queue whenever the input is ready and not finished, again and again, and once more when the writer
  /// stops writing. Once an input; calls begin with the session. A call that brings no sample is not repeated. The block is not
  /// called after markAsFinished on that serial queue.
  void requestMediaDataWhenReadyOnQueue(const dispatch_queue_t& queue, std::function<void()> usingBlock);

 private:
  friend class AVAssetWriter;
  AVAssetWriterInput() = default;
  /// Null where the settings do not fit the media type.
  std::unique_ptr<AVSampleFeed> makeFeed() const;
  /// False where it belongs to a writer already.
  bool attach(const std::shared_ptr<AVAssetWriterSession>& session);
  bool isAttached() const;
  /// What has been requested before may begin.
  void sessionStarted();
  void writingStopped();
  /// No sample is taken any more. False where that was so before.
  bool close();
  bool endTrack(MovieWriter& movie, std::optional<NSError>* error);
  bool bring(const CMSampleBufferRef& sampleBuffer, AVAssetWriterSession& session);
  CMTime relativeTime(const CMSampleBufferRef& sampleBuffer, AVAssetWriterSession& session, std::string& why) const;

  AVMediaType mediaType_;
  NSDictionary outputSettings_;
  std::atomic<bool> realTime_{false};
  mutable std::mutex mutex_;  ///< guards what follows
  std::weak_ptr<AVAssetWriterSession> session_;
  bool attached_ = false;
  bool finished_ = false;
  std::shared_ptr<AVMediaDataRequest> request_;
  std::mutex feedMutex_;  ///< one sample at a time; taken before mutex_
  std::unique_ptr<AVSampleFeed> feed_;
  CMTime lastTime_;
};

}  // namespace vidloom
