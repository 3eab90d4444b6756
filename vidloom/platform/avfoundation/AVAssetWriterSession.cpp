#include "vidloom/platform/avfoundation/AVAssetWriterSession.h"

#include <utility>

namespace vidloom {

void AVAssetWriterSession::setStopObserver(std::function<void()> observer) {
  const std::lock_guard lock(mutex_);
  stopObserver_ = std::move(observer);
}

AVAssetWriterSession::Status AVAssetWriterSession::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<NSError> AVAssetWriterSession::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

void AVAssetWriterSession::start(std::unique_ptr<MovieWriter> movie) {
  const std::lock_guard lock(mutex_);
  if (status_ != Status::unknown) return;
  movie_ = std::move(movie);
  status_ = Status::writing;
}

bool AVAssetWriterSession::setStartTime(const CMTime& startTime) {
  const std::lock_guard lock(mutex_);
  if (status_ != Status::writing || CMTIME_IS_VALID(startTime_) || !CMTIME_IS_NUMERIC(startTime)) return false;
  startTime_ = startTime;
  return true;
}

CMTime AVAssetWriterSession::startTime() const {
  const std::lock_guard lock(mutex_);
  return startTime_;
}

bool AVAssetWriterSession::isOpenOrEnded() const {
  const std::lock_guard lock(mutex_);
  return status_ == Status::writing ? CMTIME_IS_VALID(startTime_) : status_ != Status::unknown;
}

bool AVAssetWriterSession::perform(const Work& work) {
  std::unique_lock lock(mutex_);
  if (status_ != Status::writing || finishing_ || cancelling_) return false;
  std::shared_ptr<MovieWriter> movie = movie_;
  ++running_;
  lock.unlock();
  std::optional<NSError> problem;
  const bool done = work(*movie, &problem);
  movie.reset();
  lock.lock();
  --running_;
  idle_.notify_all();
  if (!done && problem && !cancelling_) stopMovie(lock, Status::failed, problem);
  return done;
}

void AVAssetWriterSession::stop(Status status, const std::optional<NSError>& error) {
  std::unique_lock lock(mutex_);
  stopMovie(lock, status, error);
}

void AVAssetWriterSession::fail(const NSError& error) {
  std::unique_lock lock(mutex_);
  if (status_ == Status::writing && !cancelling_) stopMovie(lock, Status::failed, error);
}

void AVAssetWriterSession::stopMovie(std::unique_lock<std::mutex>& lock, Status status, const std::optional<NSError>& error) {
  if (status_ != Status::writing && status_ != Status::unknown) return;
  status_ = status;
  error_ = error;
  if (movie_) movie_->cancel();
  const std::shared_ptr<MovieWriter> movie = std::move(movie_);
  const std::function<void()> observer = std::exchange(stopObserver_, nullptr);
  idle_.notify_all();
  lock.unlock();
  if (observer) observer();
}

bool AVAssetWriterSession::beginFinishing() {
  const std::lock_guard lock(mutex_);
  if (status_ != Status::writing || finishing_ || cancelling_) return false;
  finishing_ = true;
  return true;
}

void AVAssetWriterSession::completeFinishing(const Work& before) {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [&] { return running_ == 0; });
  if (status_ != Status::writing || cancelling_) return;
  std::shared_ptr<MovieWriter> movie = movie_;
  ++running_;
  lock.unlock();
  std::optional<NSError> problem;
  const bool done = before(*movie, &problem) && movie->finish(&problem);
  movie.reset();
  lock.lock();
  --running_;
  if (!done) {
    stopMovie(lock, cancelling_ ? Status::cancelled : Status::failed, cancelling_ ? std::nullopt : problem);
    return;
  }
  status_ = Status::completed;
  movie = std::move(movie_);
  idle_.notify_all();
  lock.unlock();
}

void AVAssetWriterSession::cancel() {
  std::unique_lock lock(mutex_);
  cancelling_ = status_ == Status::writing || cancelling_;
  if (movie_) movie_->cancel();
  idle_.wait(lock, [&] { return running_ == 0; });
  stopMovie(lock, Status::cancelled, std::nullopt);
}

void AVAssetWriterSession::abandon() {
  std::unique_lock lock(mutex_);
  if (!finishing_) stopMovie(lock, Status::cancelled, std::nullopt);
}

}  // namespace vidloom
