#include "vidloom/platform/avfoundation/AVAssetWriterInput.h"

#include <sstream>
#include <utility>

#include "vidloom/platform/avfoundation/AVAssetWriterSession.h"
#include "vidloom/platform/avfoundation/AVAssetWriterSettings.h"
#include "vidloom/platform/avfoundation/AVAudioSampleFeed.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVMediaDataRequest.h"
#include "vidloom/platform/avfoundation/AVVideoSampleFeed.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

using Status = AVAssetWriterSession::Status;

NSError sampleError(const AVMediaType& mediaType, const CMTime& time, const std::string& why) {
  std::ostringstream text;
  text << "Cannot append the " << (mediaType == AVMediaTypeVideo ? "video" : "audio") << " sample at " << time << ": " << why;
  return AVMakeError(AVErrorInvalidSourceMedia, text.str());
}

}  // namespace

std::shared_ptr<AVAssetWriterInput> AVAssetWriterInput::initWithMediaType(const AVMediaType& mediaType,
                                                                          const NSDictionary& outputSettings) {
  struct Made : AVAssetWriterInput {};
  const std::shared_ptr<AVAssetWriterInput> input = std::make_shared<Made>();
  input->mediaType_ = mediaType;
  input->outputSettings_ = outputSettings;
  return input;
}

AVAssetWriterInput::~AVAssetWriterInput() = default;

const AVMediaType& AVAssetWriterInput::mediaType() const { return mediaType_; }
const NSDictionary& AVAssetWriterInput::outputSettings() const { return outputSettings_; }
bool AVAssetWriterInput::expectsMediaDataInRealTime() const { return realTime_; }
void AVAssetWriterInput::setExpectsMediaDataInRealTime(bool value) { realTime_ = value; }

std::unique_ptr<AVSampleFeed> AVAssetWriterInput::makeFeed() const {
  if (mediaType_ == AVMediaTypeVideo && AVAssetWriterSettings::video(outputSettings_)) return std::make_unique<AVVideoSampleFeed>();
  const auto settings = AVAssetWriterSettings::audio(outputSettings_);
  if (mediaType_ == AVMediaTypeAudio && settings) return std::make_unique<AVAudioSampleFeed>(*settings);
  return nullptr;
}

bool AVAssetWriterInput::attach(const std::shared_ptr<AVAssetWriterSession>& session) {
  const std::scoped_lock lock(feedMutex_, mutex_);
  if (attached_) return false;
  feed_ = makeFeed();
  session_ = session;
  attached_ = true;
  return true;
}

bool AVAssetWriterInput::isAttached() const {
  const std::lock_guard lock(mutex_);
  return attached_;
}

bool AVAssetWriterInput::isReadyForMoreMediaData() const {
  const std::lock_guard lock(mutex_);
  if (finished_) return false;
  if (!attached_) return true;
  const auto session = session_.lock();
  // Ready also after a failure: a client that waits for readiness would never learn of it.
  return !session || session->isOpenOrEnded();
}

void AVAssetWriterInput::sessionStarted() {
  const std::lock_guard lock(mutex_);
  if (request_) request_->call();
}

void AVAssetWriterInput::writingStopped() {
  const std::lock_guard lock(mutex_);
  if (request_ && !finished_) request_->callLast();
}

void AVAssetWriterInput::requestMediaDataWhenReadyOnQueue(const dispatch_queue_t& queue, std::function<void()> usingBlock) {
  const std::lock_guard lock(mutex_);
  if (request_ || !queue || !usingBlock) {
    NSLog("AVAssetWriterInput: media data can be requested once, with a queue and a block");
    return;
  }
  if (finished_) return;
  request_ = std::make_shared<AVMediaDataRequest>(queue, std::move(usingBlock));
  const auto session = session_.lock();
  if (session && !session->isOpenOrEnded()) return;
  const bool isWriting = session ? session->status() == Status::writing : !attached_;
  if (isWriting) {
    request_->call();
  } else {
    request_->callLast();
  }
}

bool AVAssetWriterInput::appendSampleBuffer(const CMSampleBufferRef& sampleBuffer) {
  const std::lock_guard feeding(feedMutex_);
  std::unique_lock lock(mutex_);
  const std::shared_ptr<AVAssetWriterSession> session = finished_ ? nullptr : session_.lock();
  const std::shared_ptr<AVMediaDataRequest> request = request_;
  lock.unlock();
  if (!session || session->status() != Status::writing || !bring(sampleBuffer, *session)) return false;
  if (request) request->noteProgress();
  return true;
}

CMTime AVAssetWriterInput::relativeTime(const CMSampleBufferRef& sampleBuffer, AVAssetWriterSession& session,
                                        std::string& why) const {
  const CMTime time = CMSampleBufferGetPresentationTimeStamp(sampleBuffer);
  const CMTime start = session.startTime();
  if (!CMSampleBufferIsValid(sampleBuffer)) {
    why = "there is no sample or it was invalidated";
  } else if (!CMTIME_IS_NUMERIC(time)) {
    why = "it has no time";
  } else if (CMTIME_IS_INVALID(start)) {
    why = "no session was started";
  } else if (CMTIME_IS_VALID(lastTime_) && CMTimeCompare(time, lastTime_) <= 0) {
    why = "times must increase";
  } else {
    why = feed_->problemWith(sampleBuffer);
  }
  return CMTimeSubtract(time, start);
}

bool AVAssetWriterInput::bring(const CMSampleBufferRef& sampleBuffer, AVAssetWriterSession& session) {
  std::string why;
  const CMTime time = CMSampleBufferGetPresentationTimeStamp(sampleBuffer);
  const CMTime relative = relativeTime(sampleBuffer, session, why);
  if (!why.empty()) {
    session.fail(sampleError(mediaType_, time, why));
    return false;
  }
  lastTime_ = time;
  return session.perform(
      [&](MovieWriter& movie, std::optional<NSError>* error) { return feed_->append(sampleBuffer, relative, movie, error); });
}

bool AVAssetWriterInput::close() {
  std::unique_lock lock(mutex_);
  const bool isFirst = !std::exchange(finished_, true);
  const std::shared_ptr<AVMediaDataRequest> request = request_;
  lock.unlock();
  if (request) request->close();
  return isFirst;
}

bool AVAssetWriterInput::endTrack(MovieWriter& movie, std::optional<NSError>* error) {
  const std::lock_guard feeding(feedMutex_);
  return feed_->end(movie, error);
}

void AVAssetWriterInput::markAsFinished() {
  std::unique_lock lock(mutex_);
  const std::shared_ptr<AVAssetWriterSession> session = session_.lock();
  const bool isAttached = attached_;
  lock.unlock();
  if (isAttached && (!session || session->status() == Status::unknown)) return;
  if (close() && session) {
    session->perform([&](MovieWriter& movie, std::optional<NSError>* error) { return endTrack(movie, error); });
  }
}

}  // namespace vidloom
