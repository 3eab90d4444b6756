// Writes a timeline to an MPEG-4 movie.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>

#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"
#include "vidloom/compositing/LUMAVCompositionData.h"
#include "vidloom/export/LUMRenderDelegate.h"
#include "vidloom/export/LUMRenderStatistics.h"
#include "vidloom/export/RenderSession.h"
#include "vidloom/export/SAProgress.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

class LUMComposition;

/// One export at a time; after its end the exporter can be used again. Set up on one thread; cancel(), clean() and all accessors
/// may be called on any. The timeline must not be edited while generate() runs. An exporter that is released stops and leaves no
/// file.
class LUMRender : public std::enable_shared_from_this<LUMRender> {
 public:
  /// The composition data is built by generate().
  static std::shared_ptr<LUMRender> initWithComposition(std::shared_ptr<LUMComposition> composition, std::filesystem::path fileURL);
  /// With composition data that was built before.
  static std::shared_ptr<LUMRender> initWithData(std::shared_ptr<LUMAVCompositionData> data,
                                                 std::shared_ptr<LUMComposition> composition, std::filesystem::path fileURL);
  virtual ~LUMRender();

  /// Called by the initialisers: no time range, and a new renderer queue.
  virtual void prepare();
  /// Sets everything up, starts the export and returns. An existing file at fileURL is removed. What stops the set-up is logged and
  /// kept in setUpError(); the delegate hears of it only where the writer could not be made.
  virtual void generate();
  /// Ends a running export: renderDidCancelRendering follows on the main queue, unless the writer was already completing the file.
  /// Where nothing runs yet or any more: reports the cancellation at once, on this thread, and cleans. Repeated calls do nothing.
  void cancel();
  /// Ends reader and writer, whatever they are doing, and lets go of them. Runs by itself after every end of an export.
  virtual void clean();
  /// Posts the percentage to the main queue; it is computed there.
  void notifyProgressDidUpdateOnMainQueue();

  const std::shared_ptr<LUMComposition>& composition() const { return composition_; }
  const std::filesystem::path& fileURL() const { return fileURL_; }
  std::shared_ptr<LUMAVCompositionData> compositionData() const { return locked(compositionData_); }
  void setCompositionData(std::shared_ptr<LUMAVCompositionData> data) { setLocked(compositionData_, std::move(data)); }
  /// False: the host draws the frames (see asyncDelegate). True: the platform composes them.
  bool useNativeComposition() const { return useNativeComposition_; }
  void setUseNativeComposition(bool value) { useNativeComposition_ = value; }
  /// The part of the timeline to export; invalid means all of it.
  CMTimeRange timeRange() const { return locked(timeRange_); }
  void setTimeRange(const CMTimeRange& timeRange) { setLocked(timeRange_, timeRange); }
  /// Volumes of the tracks; null plays all at volume 1. The composition data's own mix is not used.
  std::shared_ptr<AVMutableAudioMix> audioMix() const { return locked(audioMix_); }
  void setAudioMix(std::shared_ptr<AVMutableAudioMix> audioMix) { setLocked(audioMix_, std::move(audioMix)); }
  std::weak_ptr<LUMAVAsyncDrawDelegate> asyncDelegate() const { return locked(asyncDelegate_); }
  void setAsyncDelegate(std::weak_ptr<LUMAVAsyncDrawDelegate> delegate) { setLocked(asyncDelegate_, std::move(delegate)); }
  std::weak_ptr<LUMRenderDelegate> delegate() const { return locked(delegate_); }
  void setDelegate(std::weak_ptr<LUMRenderDelegate> delegate) { setLocked(delegate_, std::move(delegate)); }

  /// Of the last export; null before the first.
  std::shared_ptr<SAProgress> progress() const { return locked(progress_); }
  void setProgress(std::shared_ptr<SAProgress> progress) { setLocked(progress_, std::move(progress)); }
  CMTime lastVideoTimestamp() const { return locked(video_.lastTimestamp); }
  void setLastVideoTimestamp(const CMTime& time) { setLocked(video_.lastTimestamp, time); }
  CMTime lastAudioTimestamp() const { return locked(audio_.lastTimestamp); }
  void setLastAudioTimestamp(const CMTime& time) { setLocked(audio_.lastTimestamp, time); }
  bool video_input_marked_finished() const { return video_.markedFinished; }
  void setVideo_input_marked_finished(bool value) { video_.markedFinished = value; }
  bool audio_input_marked_finished() const { return audio_.markedFinished; }
  void setAudio_input_marked_finished(bool value) { audio_.markedFinished = value; }
  /// A cancellation is under way.
  bool cancel_period() const { return locked(cancel_period_); }

  /// Null before generate() and after clean().
  dispatch_queue_t serial_queue() const { return parts().serialQueue; }
  dispatch_queue_t renderer_queue() const { return locked(renderer_queue_); }
  std::shared_ptr<AVAssetReader> reader() const { return parts().reader; }
  std::shared_ptr<AVAssetReaderVideoCompositionOutput> readerVideoCompositionOutput() const { return parts().videoOutput; }
  std::shared_ptr<AVAssetReaderAudioMixOutput> readerAudioMixOutput() const { return parts().audioOutput; }
  /// In renderDidCompleteWithURL its status is final.
  std::shared_ptr<AVAssetWriter> writer() const { return parts().writer; }
  std::shared_ptr<AVAssetWriterInput> audioInput() const { return parts().audioInput; }
  std::shared_ptr<AVAssetWriterInput> videoInput() const { return parts().videoInput; }

  /// What stopped the last generate() before anything was exported; nullopt where it got through. Domain "LUMRender"; the
  /// platform's own error, where there is one, is the underlying one.
  std::optional<NSError> setUpError() const { return locked(setUpError_); }
  LUMRenderStatistics statistics() const { return locked(statistics_); }
  /// What the H.264 encoder gets beside the picture size. Takes effect with the next generate().
  VideoEncoderOptions videoEncoderOptions() const { return locked(videoEncoderOptions_); }
  void setVideoEncoderOptions(const VideoEncoderOptions& options) { setLocked(videoEncoderOptions_, options); }
  /// How long the one who draws may leave every frame that it holds unanswered before the export fails: 10 s unless set, infinity
  /// for ever. Takes effect with the next generate(), which ignores what is not above zero.
  CMTime drawTimeout() const { return locked(drawTimeout_); }
  void setDrawTimeout(const CMTime& timeout) { setLocked(drawTimeout_, timeout); }
  /// The composition time at which the movie begins. Zero unless set: then a range that starts later leaves the movie empty up to
  /// there.
  CMTime sessionStart() const { return locked(sessionStart_); }
  void setSessionStart(const CMTime& sessionStart) { setLocked(sessionStart_, sessionStart); }

 protected:
  enum class Kind { video, audio };
  enum class Step { notReady, ended, appended, ownerGone };

  LUMRender() = default;
  /// The end of every initialiser: stores and prepares.
  void store(std::shared_ptr<LUMAVCompositionData> data, std::shared_ptr<LUMComposition> composition,
             std::filesystem::path fileURL);

  /// Everything up to and with the writer's inputs. Null where that was stopped or cancelled. Each set-up that gave a session is
  /// ended by stopSetUp() or finishSetUp().
  std::shared_ptr<RenderSession> setUp(bool expectsMediaDataInRealTime);
  /// Logs and keeps the error, unless the set-up was cancelled.
  void stopSetUp(const NSError& error);
  /// False where the set-up was cancelled meanwhile: the session is then over.
  bool finishSetUp(const std::shared_ptr<RenderSession>& session);
  void resetTimestamps();
  void storeProgressTotal(const RenderSession& session);
  /// Copies, appends and counts the next sample of a stream. The owner is not kept alive while the copy blocks.
  static Step appendNextSample(const std::weak_ptr<LUMRender>& owner, const RenderSession::Parts& parts, Kind kind);
  /// Runs the block on the main queue once a cancellation that was asked for has reached reader and writer.
  static void onMainAfterCancellation(const RenderSession::Parts& parts, dispatch_block_t block);
  void setPhase(LUMRenderStatistics::Phase phase);
  /// Cleans, unless a later export has begun on this exporter.
  void cleanAfter(const std::shared_ptr<RenderSession>& session);
  void reportCompletion();
  void reportCancellation();
  /// Where nobody listens, nothing is logged either.
  void reportFailure(const RenderSession::Parts& parts);

 private:
  struct Counter {
    std::atomic<bool> markedFinished{false};
    CMTime lastTimestamp{};
  };
  struct Pump;
  template <class Value>
  Value locked(const Value& value) const {
    const std::lock_guard lock(mutex_);
    return value;
  }
  template <class Value>
  void setLocked(Value& member, Value value) {
    const std::lock_guard lock(mutex_);
    std::swap(member, value);
  }
  RenderSession::Parts parts() const;
  Counter& counter(Kind kind) { return kind == Kind::video ? video_ : audio_; }
  void beginSetUp();
  std::shared_ptr<LUMAVCompositionData> dataForRun() const;
  void handDrawDelegate(const LUMAVCompositionData& data) const;
  /// False where the set-up was cancelled.
  bool publish(const std::shared_ptr<RenderSession>& session);
  std::optional<NSError> connect(RenderSession& session, bool expectsMediaDataInRealTime);
  void reportSetUpFailure(const NSError& error);
  void submitFinisher(const std::shared_ptr<RenderSession>& session, const dispatch_semaphore_t& video,
                      const dispatch_semaphore_t& audio);
  static void finish(const std::weak_ptr<LUMRender>& owner, const std::shared_ptr<RenderSession>& session);
  void submitPump(const std::shared_ptr<RenderSession>& session, Kind kind, const dispatch_semaphore_t& ended);
  void count(const CMSampleBufferRef& sample, Kind kind);

  std::shared_ptr<LUMComposition> composition_;
  std::filesystem::path fileURL_;
  std::atomic<bool> useNativeComposition_{false};
  Counter video_, audio_;  // timestamps under mutex_

  mutable std::mutex mutex_;  // guards everything below
  bool cancel_period_ = false;
  bool settingUp_ = false;
  bool setUpCancelled_ = false;
  std::shared_ptr<RenderSession> session_;
  dispatch_queue_t renderer_queue_;
  std::shared_ptr<LUMAVCompositionData> compositionData_;
  std::shared_ptr<AVMutableAudioMix> audioMix_;
  std::shared_ptr<SAProgress> progress_;
  std::weak_ptr<LUMAVAsyncDrawDelegate> asyncDelegate_;
  std::weak_ptr<LUMRenderDelegate> delegate_;
  CMTimeRange timeRange_;
  std::optional<NSError> setUpError_;
  LUMRenderStatistics statistics_;
  VideoEncoderOptions videoEncoderOptions_;
  CMTime sessionStart_ = kCMTimeZero;
  CMTime drawTimeout_ = CMTimeMake(10, 1);
};

}  // namespace vidloom
