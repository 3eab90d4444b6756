#include "vidloom/platform/reading/FrameServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <mutex>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/dispatch/DispatchClock.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/platform/reading/CompositorHost.h"
#include "vidloom/platform/reading/FilterCompositor.h"
#include "vidloom/platform/reading/FrameGatherer.h"
#include "vidloom/platform/reading/FrameGrid.h"
#include "vidloom/platform/reading/OutputColor.h"
#include "vidloom/platform/reading/SampleMaker.h"

namespace vidloom {

namespace {

struct Slot {
  CMTime time;
  bool isReady = false;
  bool isWithCompositor = false;
  bool isPostProcessed = false;
  GatheredFrame frame;      ///< of the built-in compositor
  CVPixelBufferRef buffer;  ///< of a custom one; null where it cancelled the request
  std::optional<NSError> error;
};
using SlotRef = std::shared_ptr<Slot>;

enum class Ending : uint8_t { none, failed, cancelled };

NSError compositorError(const CMTime& time, const NSError& cause) {
  return AVMakeError(AVErrorVideoCompositorFailed,
                     NSStringWithFormat("The compositor failed at %.6f s of the composition: %s", CMTimeGetSeconds(time),
                                        cause.localizedDescription().c_str()),
                     {}, cause);
}

NSError timeoutError(const CMTime& time, uint64_t timeoutNs) {
  return AVMakeError(AVErrorVideoCompositorFailed,
                     NSStringWithFormat("The compositor gave no answer for the frame at %.6f s of the composition within %.3g s",
                                        CMTimeGetSeconds(time), static_cast<double>(timeoutNs) * 1e-9),
                     {}, AVMakePOSIXError(ETIMEDOUT));
}

void logLateAnswer(const CMTime& time) {
  NSLog(NSStringWithFormat("An answer for the frame at %.6f s came too late and is dropped", CMTimeGetSeconds(time)));
}

}  // namespace

/// Shared by the server and the work that it has submitted.
class FrameServer::State : public std::enable_shared_from_this<State> {
 public:
  State(Setup setup, const PictureColor& color)
      : framesUnderWay_(setup.framesUnderWay),
        answerTimeoutNs_(setup.answerTimeoutNs),
        times_(setup.range, setup.composition->frameDuration()),
        gatherer_(setup.videoTracks, setup.composition, std::move(setup.opener)),
        samples_(*setup.composition, gatherer_.width(), gatherer_.height(), color, setup.pixelFormat),
        queue_(dispatch_queue_create("vidloom.reader.decode", DISPATCH_QUEUE_SERIAL)),
        progress_(dispatch_semaphore_create(0)) {}

  void setHost(std::shared_ptr<CompositorHost> host) { host_ = std::move(host); }
  const FrameGatherer& gatherer() const { return gatherer_; }

  CMSampleBufferRef next(std::optional<NSError>* error) {
    while (const SlotRef slot = takeNext()) {
      if (!slot->error) {
        if (slot->isWithCompositor && !slot->buffer) continue;
        if (CMSampleBufferRef sample = makeSample(*slot)) return sample;
        slot->error = AVMakeError(AVErrorOutOfMemory, "No memory for a frame of the output");
      }
      if (end(Ending::failed) && error) *error = slot->error;
      return nullptr;
    }
    return nullptr;
  }

  void cancel() { end(Ending::cancelled); }

 private:
  /// Waits for the frame that is next. Null at the end and after cancel().
  SlotRef takeNext() {
    while (true) {
      {
        const std::lock_guard lock(mutex_);
        if (isEnded()) return nullptr;
        scheduleDecoding();
        if (slots_.empty()) return nullptr;
        if (slots_.front()->isReady) {
          SlotRef slot = std::move(slots_.front());
          slots_.pop_front();
          scheduleDecoding();
          return slot;
        }
        if (const SlotRef expired = expiredSlot()) return expired;
      }
      watchAnswers();
      dispatch_semaphore_wait(progress_, DISPATCH_TIME_FOREVER);
    }
  }

  /// An error in place of the first frame where the compositor has kept that one for too long; else null. Under the lock.
  SlotRef expiredSlot() const {
    const Slot& first = *slots_.front();
    if (!first.isWithCompositor || DispatchClock::current()->nowNs() < deadlineNs()) return nullptr;
    auto expired = std::make_shared<Slot>();
    expired->error = timeoutError(first.time, answerTimeoutNs_);
    return expired;
  }

  /// When the compositor should have answered. Under the lock.
  uint64_t deadlineNs() const { return lastAnswerNs_ + std::min(answerTimeoutNs_, ~uint64_t{0} - lastAnswerNs_); }

  /// Has the one who waits look again when the compositor should have answered.
  void watchAnswers() {
    uint64_t deadlineNs = 0;
    {
      const std::lock_guard lock(mutex_);
      if (isWatching_ || slots_.empty() || !slots_.front()->isWithCompositor) return;
      deadlineNs = this->deadlineNs();
      if (deadlineNs == ~uint64_t{0}) return;
      isWatching_ = true;
    }
    // A clock may make the call at once.
    DispatchClock::current()->callAt(deadlineNs, [weakSelf = weak_from_this()] {
      const auto self = weakSelf.lock();
      if (!self) return;
      const std::lock_guard lock(self->mutex_);
      self->isWatching_ = false;
      dispatch_semaphore_signal(self->progress_);
    });
  }

  /// Under the lock.
  void scheduleDecoding() {
    if (isDecoding_ || !hasRoom()) return;
    isDecoding_ = true;
    addSlot();
    dispatch_async(queue_, [self = shared_from_this()] { self->decode(); });
  }

  bool hasRoom() const { return nextIndex_ < times_.count() && slots_.size() < framesUnderWay_ && !isEnded(); }

  /// The frame that is decoded next, so that whoever waits sees it coming. Under the lock.
  void addSlot() {
    pending_ = std::make_shared<Slot>();
    pending_->time = times_.time(nextIndex_);
    slots_.push_back(pending_);
  }

  void decode() {
    bool goesOn = true;
    while (goesOn) {
      std::optional<NSError> error;
      std::optional<GatheredFrame> frame;
      if (!isEnded()) frame = gatherer_.gather(pending_->time, times_.exactTime(nextIndex_), &error);
      const std::lock_guard lock(mutex_);
      handOver(pending_, std::move(frame), error);
      ++nextIndex_;
      goesOn = isDecoding_ = hasRoom();
      if (goesOn) {
        addSlot();
      } else {
        pending_ = nullptr;
      }
    }
    if (isEnded() || nextIndex_ == times_.count()) gatherer_.close();
  }

  /// Under the lock.
  void handOver(const SlotRef& slot, std::optional<GatheredFrame> frame, const std::optional<NSError>& error) {
    if (isEnded()) return;
    if (frame && frame->isForCompositor) {
      slot->isWithCompositor = true;
      slot->isPostProcessed = frame->isPostProcessed;
      lastAnswerNs_ = std::max(lastAnswerNs_, DispatchClock::current()->nowNs());
      dispatch_semaphore_signal(progress_);  // the time runs from here
      host_->start(
          std::move(*frame), [self = shared_from_this()] { return !self->isEnded(); },
          [weakSelf = weak_from_this(), ending = ending_, slot](CompositionAnswer answer) {
            const auto self = weakSelf.lock();
            if (self && self->receive(slot, answer)) return;
            if (*ending == Ending::failed && answer.isGiven) logLateAnswer(slot->time);
          });
      return;
    }
    if (frame) slot->frame = std::move(*frame);
    slot->error = error;
    slot->isReady = true;
    dispatch_semaphore_signal(progress_);
  }

  /// False where nobody waits for the answer any more.
  bool receive(const SlotRef& slot, CompositionAnswer& answer) {
    const std::lock_guard lock(mutex_);
    if (isEnded()) return false;
    lastAnswerNs_ = DispatchClock::current()->nowNs();
    slot->buffer = std::move(answer.buffer);
    if (answer.error) slot->error = compositorError(slot->time, *answer.error);
    slot->isReady = true;
    dispatch_semaphore_signal(progress_);
    return true;
  }

  bool isEnded() const { return *ending_ != Ending::none; }

  /// No frame is begun or handed on any more; what is under way is dropped. False where that was so before.
  bool end(Ending how) {
    std::deque<SlotRef> dropped;
    bool compositorIsBusy = false;
    {
      const std::lock_guard lock(mutex_);
      if (isEnded()) return false;
      *ending_ = how;
      dropped.swap(slots_);
      compositorIsBusy =
          std::any_of(dropped.begin(), dropped.end(), [](const SlotRef& slot) { return slot->isWithCompositor && !slot->isReady; });
      if (!isDecoding_) dispatch_async(queue_, [self = shared_from_this()] { self->gatherer_.close(); });
      dispatch_semaphore_signal(progress_);
    }
    gatherer_.cancel();
    if (compositorIsBusy) host_->cancelAll();
    return true;
  }

  CMSampleBufferRef makeSample(const Slot& slot) {
    return slot.isWithCompositor ? samples_.fromBuffer(slot.buffer, slot.time, slot.isPostProcessed)
                                 : samples_.fromLayers(slot.frame);
  }

  const size_t framesUnderWay_;
  const uint64_t answerTimeoutNs_;
  const FrameGrid times_;
  std::shared_ptr<CompositorHost> host_;
  FrameGatherer gatherer_;  ///< used on queue_
  SampleMaker samples_;     ///< used by the one who pulls
  const dispatch_queue_t queue_;
  const dispatch_semaphore_t progress_;  ///< signalled whenever the one who pulls should look again
  /// Written with the lock; outlives this object in the hands of compositors.
  const std::shared_ptr<std::atomic<Ending>> ending_ = std::make_shared<std::atomic<Ending>>(Ending::none);

  std::mutex mutex_;
  std::deque<SlotRef> slots_;  ///< frames under way, in order of time
  SlotRef pending_;            ///< the one that is being decoded
  int64_t nextIndex_ = 0;      ///< its number
  uint64_t lastAnswerNs_ = 0;
  bool isDecoding_ = false;
  bool isWatching_ = false;
};

FrameServer::FrameServer(std::shared_ptr<State> state) : state_(std::move(state)) {}

FrameServer::~FrameServer() { state_->cancel(); }

CMSampleBufferRef FrameServer::next(std::optional<NSError>* error) { return state_->next(error); }

void FrameServer::cancel() { state_->cancel(); }

std::shared_ptr<FrameServer> FrameServer::make(Setup setup, std::optional<NSError>* error) {
  const PictureColor color = outputColor(*setup.composition, setup.videoTracks);
  const float renderScale = setup.composition->renderScale();
  const bool usesCompositor = static_cast<bool>(setup.composition->customVideoCompositorClass());
  const bool usesFilter = !usesCompositor && FilterCompositor::isNeededFor(*setup.composition);
  const std::shared_ptr<AVVideoCompositing> compositor = usesFilter ? std::make_shared<FilterCompositor>() : setup.compositor;
  auto state = std::make_shared<State>(std::move(setup), color);
  const int width = state->gatherer().width(), height = state->gatherer().height();
  if (width <= 0 || height <= 0) {
    if (error) *error = AVMakeError(AVErrorInvalidVideoComposition, "The video composition's render size is not positive");
    return nullptr;
  }
  if (usesCompositor || usesFilter) {
    if (!compositor) {
      if (error) *error = AVMakeError(AVErrorInvalidVideoComposition, "The custom compositor's class makes no compositor");
      return nullptr;
    }
    auto host = CompositorHost::make(compositor, width, height, renderScale, color, error);
    if (!host) return nullptr;
    state->setHost(std::move(host));
  }
  return std::shared_ptr<FrameServer>(new FrameServer(std::move(state)));
}

}  // namespace vidloom
