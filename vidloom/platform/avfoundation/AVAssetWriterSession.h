// The writing of one movie as writer and inputs share it.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom {

/// Status, error and the movie writer behind them. Any thread. Work on the movie runs without the lock; whoever ends the writing
/// waits until running work has stopped.
class AVAssetWriterSession {
 public:
  enum class Status : int64_t { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };
  using Work = std::function<bool(MovieWriter& movie, std::optional<NSError>* error)>;

  /// Called, without a lock and once, when the status has become failed or cancelled.
  void setStopObserver(std::function<void()> observer);

  Status status() const;
  std::optional<NSError> error() const;

  /// From unknown to writing with that movie, or to failed with that error.
  void start(std::unique_ptr<MovieWriter> movie);
  void startFailed(const NSError& error) { stop(Status::failed, error); }
  /// Once while writing.
  bool setStartTime(const CMTime& startTime);
  /// Invalid before.
  CMTime startTime() const;
  /// Whether clients have something to learn: samples may be brought, or the writing has ended.
  bool isOpenOrEnded() const;

  /// Runs the work while the status is writing and nobody is ending it. False where it did not run or failed; the session then
  /// fails with the work's error.
  bool perform(const Work& work);
  /// The writing fails.
  void fail(const NSError& error);
  /// Refuses further work. False where the session is not writing or finishes already.
  bool beginFinishing();
  /// After beginFinishing(), on any one thread: does what is left to do before, then writes the file. The status is final when it
  /// returns.
  void completeFinishing(const Work& before);
  /// Ends the writing and waits for running work. Nothing where the status is final; a file that is just finished stays.
  void cancel();
  /// As cancel(), without waiting; a finish under way goes on.
  void abandon();

 private:
  void stop(Status status, const std::optional<NSError>& error);
  void stopMovie(std::unique_lock<std::mutex>& lock, Status status, const std::optional<NSError>& error);

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  Status status_ = Status::unknown;
  std::optional<NSError> error_;
  std::shared_ptr<MovieWriter> movie_;
  CMTime startTime_;
  int running_ = 0;
  bool finishing_ = false;
  bool cancelling_ = false;
  std::function<void()> stopObserver_;
};

}  // namespace vidloom
