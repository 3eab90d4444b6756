#include "vidloom/export/LUMRender.h"

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/foundation/NSFileManager.h"
#include "vidloom/speed/SpeedProblem.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

using Phase = LUMRenderStatistics::Phase;

constexpr int64_t kPauseNs = 5'000'000;

NSError renderError(const std::string& text) {
  return NSError::errorWithDomain("LUMRender", -1, {{NSLocalizedDescriptionKey, text}});
}

std::optional<std::string> speedProblemIn(const std::shared_ptr<LUMComposition>& composition) {
  if (!composition) return std::nullopt;
  for (const auto& instruction : composition->getCompositionInstructions()) {
    for (const auto& track : instruction->getInstructionTracks()) {
      if (auto problem = speedProblemOf(track)) return problem;
    }
  }
  return std::nullopt;
}

NSError cancelledError() {
  const std::string text = "LUMRender was cancelled while it was being set up";
  return NSError::errorWithDomain(
      "LUMRender", -1, {{NSLocalizedDescriptionKey, text}, {NSUnderlyingErrorKey, AVMakeError(AVErrorOperationCancelled, text)}});
}

}  // namespace

/// What one pump needs; it never looks into its owner for it.
struct LUMRender::Pump {
  std::weak_ptr<LUMRender> owner;
  RenderSession::Parts parts;
  Kind kind;
  dispatch_semaphore_t ended;
  dispatch_semaphore_t pause = dispatch_semaphore_create(0);

  void run() const {
    if (const auto self = owner.lock()) self->setPhase(kind == Kind::video ? Phase::video : Phase::audio);
    while (mayGoOn()) dispatch_sync(parts.serialQueue, [this] { step(); });
    dispatch_semaphore_signal(ended);
  }

  bool mayGoOn() const {
    if (parts.reader->status() != AVAssetReaderStatusReading || parts.writer->status() != AVAssetWriterStatusWriting) return false;
    const auto self = owner.lock();
    return self && !self->counter(kind).markedFinished;
  }

  void step() const {
    const Step result = appendNextSample(owner, parts, kind);
    if (result == Step::notReady) dispatch_semaphore_wait(pause, dispatch_time(DISPATCH_TIME_NOW, kPauseNs));
    if (result != Step::ended) return;
    if (const auto self = owner.lock()) self->counter(kind).markedFinished = true;
    dispatch_semaphore_signal(ended);
  }
};

std::shared_ptr<LUMRender> LUMRender::initWithComposition(std::shared_ptr<LUMComposition> composition,
                                                          std::filesystem::path fileURL) {
  return initWithData(nullptr, std::move(composition), std::move(fileURL));
}

std::shared_ptr<LUMRender> LUMRender::initWithData(std::shared_ptr<LUMAVCompositionData> data,
                                                   std::shared_ptr<LUMComposition> composition, std::filesystem::path fileURL) {
  struct Concrete : LUMRender {};
  auto render = std::make_shared<Concrete>();
  render->store(std::move(data), std::move(composition), std::move(fileURL));
  return render;
}

void LUMRender::store(std::shared_ptr<LUMAVCompositionData> data, std::shared_ptr<LUMComposition> composition,
                      std::filesystem::path fileURL) {
  compositionData_ = std::move(data);
  composition_ = std::move(composition);
  fileURL_ = std::move(fileURL);
  prepare();
}

LUMRender::~LUMRender() {
  if (session_) session_->cancelInBackground();
}

void LUMRender::prepare() {
  setTimeRange(kCMTimeRangeInvalid);
  setLocked(renderer_queue_,
            dispatch_queue_create("corvane.renderer.queue", dispatch_queue_attr_make_with_qos_class(
                                                                DISPATCH_QUEUE_CONCURRENT, QOS_CLASS_USER_INTERACTIVE, 2)));
}

void LUMRender::generate() {
  const auto session = setUp(true);
  if (!session) return;
  if (const auto error = session->start()) return stopSetUp(*error);
  resetTimestamps();
  session->parts().writer->startSessionAtSourceTime(sessionStart());
  const auto audioEnded = dispatch_semaphore_create(0);
  const auto videoEnded = dispatch_semaphore_create(0);
  setVideo_input_marked_finished(false);
  setAudio_input_marked_finished(false);
  storeProgressTotal(*session);
  if (!finishSetUp(session)) return;
  submitFinisher(session, videoEnded, audioEnded);
  submitPump(session, Kind::video, videoEnded);
  submitPump(session, Kind::audio, audioEnded);
}

std::shared_ptr<RenderSession> LUMRender::setUp(bool expectsMediaDataInRealTime) {
  beginSetUp();
  if (fileURL_.empty()) {
    stopSetUp(renderError("LUMRender fileURL is NULL"));
    return nullptr;
  }
  if (!NSFileManager::removeItemAtURL(fileURL_, nullptr))
    LUMGlobal::LUMLog("LUMRender cannot clean file from url: " + fileURL_.string());
  const auto data = dataForRun();
  if (!useNativeComposition()) handDrawDelegate(*data);
  const auto session = std::make_shared<RenderSession>(data);
  if (!publish(session)) {
    stopSetUp(cancelledError());
    return nullptr;
  }
  if (const auto error = session->makeWriter(fileURL_, videoEncoderOptions())) {
    stopSetUp(*error);
    reportSetUpFailure(*error);
    return nullptr;
  }
  if (const auto error = connect(*session, expectsMediaDataInRealTime)) {
    stopSetUp(*error);
    return nullptr;
  }
  return session;
}

void LUMRender::beginSetUp() {
  const std::lock_guard lock(mutex_);
  if (session_) session_->cancelInBackground();
  session_.reset();
  settingUp_ = true;
  setUpCancelled_ = false;
  setUpError_.reset();
  statistics_ = {Phase::open, {}, {}};
}

bool LUMRender::publish(const std::shared_ptr<RenderSession>& session) {
  const std::lock_guard lock(mutex_);
  if (!setUpCancelled_) session_ = session;
  return !setUpCancelled_;
}

std::shared_ptr<LUMAVCompositionData> LUMRender::dataForRun() const {
  if (auto data = compositionData()) return data;
  return useNativeComposition() ? LUMAVComposition::buildNativeCompositionData(composition_)
                                : LUMAVComposition::buildCompositionData(composition_);
}

void LUMRender::handDrawDelegate(const LUMAVCompositionData& data) const {
  if (!data.videoComposition() || data.videoComposition()->instructions().empty()) return;
  const auto last = data.videoComposition()->instructions().back();
  if (const auto instruction = std::dynamic_pointer_cast<LUMAVCompositionInstruction>(last))
    instruction->setDelegate(asyncDelegate());
}

std::optional<NSError> LUMRender::connect(RenderSession& session, bool expectsMediaDataInRealTime) {
  if (const auto problem = speedProblemIn(composition_)) return renderError("LUMRender cannot export " + *problem);
  CMTimeRange range = timeRange();
  if (CMTIMERANGE_IS_INVALID(range)) range = CMTimeRangeMake(kCMTimeZero, composition_ ? composition_->duration() : CMTime{});
  if (auto error = session.makeReader(range)) return error;
  if (auto error = session.selectTracks()) return error;
  if (auto error = session.addVideoOutput(drawTimeout())) return error;
  const CGSize renderSize = composition_ ? composition_->renderSize() : CGSizeZero;
  if (auto error = session.addVideoInput(renderSize, expectsMediaDataInRealTime)) return error;
  session.addAudioOutput(audioMix());
  session.addAudioInput(expectsMediaDataInRealTime);
  return std::nullopt;
}

void LUMRender::stopSetUp(const NSError& error) {
  bool cancelled = false;
  {
    const std::lock_guard lock(mutex_);
    settingUp_ = false;
    cancelled = setUpCancelled_;
    setUpError_ = cancelled ? cancelledError() : error;
    statistics_.phase = Phase::done;
  }
  if (!cancelled) LUMGlobal::LUMLog(error.localizedDescription());
}

void LUMRender::reportSetUpFailure(const NSError& error) {
  const auto listener = delegate().lock();
  const auto cause = error.underlyingError();
  if (cause && listener && listener->renderDidFailedWithError) listener->renderDidFailedWithError(*cause);
}

bool LUMRender::finishSetUp(const std::shared_ptr<RenderSession>& session) {
  {
    const std::lock_guard lock(mutex_);
    settingUp_ = false;
    if (!setUpCancelled_) return true;
    setUpError_ = cancelledError();
    statistics_.phase = Phase::done;
  }
  session->cancel();
  return false;
}

void LUMRender::resetTimestamps() {
  setLastAudioTimestamp(kCMTimeZero);
  setLastVideoTimestamp(kCMTimeZero);
}

void LUMRender::storeProgressTotal(const RenderSession& session) {
  setProgress(SAProgress::progressTotalUnitCount(session.totalSeconds()));
}

void LUMRender::submitPump(const std::shared_ptr<RenderSession>& session, Kind kind, const dispatch_semaphore_t& ended) {
  dispatch_barrier_async(renderer_queue(), [pump = Pump{weak_from_this(), session->parts(), kind, ended}] { pump.run(); });
}

void LUMRender::submitFinisher(const std::shared_ptr<RenderSession>& session, const dispatch_semaphore_t& video,
                               const dispatch_semaphore_t& audio) {
  const auto attributes = dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_USER_INTERACTIVE, 2);
  const auto resultQueue = dispatch_queue_create("corvane.renderer.result.queue", attributes);
  dispatch_async(resultQueue, [owner = weak_from_this(), session, video, audio] {
    dispatch_semaphore_wait(audio, DISPATCH_TIME_FOREVER);
    dispatch_semaphore_wait(video, DISPATCH_TIME_FOREVER);
    finish(owner, session);
  });
}

LUMRender::Step LUMRender::appendNextSample(const std::weak_ptr<LUMRender>& owner, const RenderSession::Parts& parts, Kind kind) {
  const auto& input = kind == Kind::video ? parts.videoInput : parts.audioInput;
  if (!input || !input->isReadyForMoreMediaData()) return Step::notReady;
  CMSampleBufferRef sample;
  if (kind == Kind::video && parts.videoOutput) sample = parts.videoOutput->copyNextSampleBuffer();
  if (kind == Kind::audio && parts.audioOutput) sample = parts.audioOutput->copyNextSampleBuffer();
  if (!sample) {
    input->markAsFinished();
    return Step::ended;
  }
  const auto self = owner.lock();
  if (!self) return Step::ownerGone;
  input->appendSampleBuffer(sample);
  self->count(sample, kind);
  self->notifyProgressDidUpdateOnMainQueue();
  return Step::appended;
}

void LUMRender::count(const CMSampleBufferRef& sample, Kind kind) {
  const CMTime start = CMSampleBufferGetPresentationTimeStamp(sample);
  const CMTime end = CMTimeAdd(start, CMSampleBufferGetDuration(sample));
  const std::lock_guard lock(mutex_);
  CMTime& last = counter(kind).lastTimestamp;
  if (progress_) progress_->setCompletedUnitCount(progress_->completedUnitCount() + CMTimeGetSeconds(CMTimeSubtract(start, last)));
  last = start;
  auto& stream = kind == Kind::video ? statistics_.video : statistics_.audio;
  stream.frameCount += CMSampleBufferGetNumSamples(sample);
  stream.mediaTime = CMTIME_IS_NUMERIC(end) ? end : start;
}

void LUMRender::notifyProgressDidUpdateOnMainQueue() {
  dispatch_async(dispatch_get_main_queue(), [owner = weak_from_this()] {
    const auto self = owner.lock();
    if (!self) return;
    const auto listener = self->delegate().lock();
    const auto progress = self->progress();
    if (progress && listener && listener->renderDidUpdateProgress) listener->renderDidUpdateProgress(progress->fractionComplete());
  });
}

void LUMRender::finish(const std::weak_ptr<LUMRender>& owner, const std::shared_ptr<RenderSession>& session) {
  if (const auto self = owner.lock())
    self->setPhase(Phase::finish);
  else
    return;
  const auto parts = session->parts();
  if (parts.reader->status() == AVAssetReaderStatusCompleted) {
    parts.writer->finishWritingWithCompletionHandler([owner, session] {
      dispatch_async(dispatch_get_main_queue(), [owner, session] {
        const auto self = owner.lock();
        if (!self) return;
        self->reportCompletion();
        self->cleanAfter(session);
      });
    });
    return;
  }
  onMainAfterCancellation(parts, [owner, session, parts] {
    const auto self = owner.lock();
    if (!self) return;
    if (parts.writer->status() == AVAssetWriterStatusCancelled)
      self->reportCancellation();
    else
      self->reportFailure(parts);
    self->cleanAfter(session);
  });
}

void LUMRender::onMainAfterCancellation(const RenderSession::Parts& parts, dispatch_block_t block) {
  dispatch_async(parts.serialQueue, [block = std::move(block)] { dispatch_async(dispatch_get_main_queue(), block); });
}

void LUMRender::cancel() {
  RenderSession::Parts parts;
  {
    const std::lock_guard lock(mutex_);
    if (cancel_period_ || (settingUp_ && setUpCancelled_)) return;
    cancel_period_ = true;
    if (settingUp_)
      setUpCancelled_ = true;
    else if (session_)
      parts = session_->parts();
  }
  if (!parts.serialQueue) {
    reportCancellation();
    clean();
    return;
  }
  dispatch_barrier_async(parts.serialQueue, [parts] {
    if (parts.reader) parts.reader->cancelReading();
    if (parts.writer) parts.writer->cancelWriting();
  });
  // A step may be waiting for a frame: it gives up now, and what was queued above runs.
  if (parts.reader) parts.reader->cancelReading();
}

void LUMRender::clean() {
  const auto session = locked(session_);
  if (session) session->cancel();
  const std::lock_guard lock(mutex_);
  cancel_period_ = false;
  if (session_ == session) session_.reset();
}

void LUMRender::cleanAfter(const std::shared_ptr<RenderSession>& session) {
  const auto current = locked(session_);
  if (!current || current == session) clean();
}

void LUMRender::reportCompletion() {
  setPhase(Phase::done);
  const auto listener = delegate().lock();
  if (listener && listener->renderDidCompleteWithURL) listener->renderDidCompleteWithURL(fileURL_);
}

void LUMRender::reportCancellation() {
  setPhase(Phase::done);
  const auto listener = delegate().lock();
  if (listener && listener->renderDidCancelRendering) listener->renderDidCancelRendering();
}

void LUMRender::reportFailure(const RenderSession::Parts& parts) {
  setPhase(Phase::done);
  const auto listener = delegate().lock();
  if (!listener || !listener->renderDidFailedWithError) return;
  const auto writerError = parts.writer->error();
  const std::string text = writerError ? writerError->localizedDescription() : "";
  LUMGlobal::LUMLog("LUMRender build failed with error: " + text);
  NSDictionary userInfo{{NSLocalizedDescriptionKey, text}};
  if (const auto cause = writerError ? writerError : parts.reader->error()) userInfo[NSUnderlyingErrorKey] = *cause;
  listener->renderDidFailedWithError(NSError::errorWithDomain("LUMRender", -1, std::move(userInfo)));
}

void LUMRender::setPhase(Phase phase) {
  const std::lock_guard lock(mutex_);
  statistics_.phase = phase;
}

RenderSession::Parts LUMRender::parts() const {
  const auto session = locked(session_);
  return session ? session->parts() : RenderSession::Parts{};
}

}  // namespace vidloom
