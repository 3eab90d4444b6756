// The custom compositor, and the builders that turn a timeline into something a reader or player takes.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <type_traits>
#include <typeinfo>

#include "vidloom/compositing/LUMAVCompositionData.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/foundation/NSClassName.h"

namespace vidloom {

class LUMComposition;

/// Draws nothing itself: each request goes over a serial queue to its instruction, which hands it to the host.
class LUMAVComposition : public AVVideoCompositing, public std::enable_shared_from_this<LUMAVComposition> {
 public:
  static std::shared_ptr<LUMAVComposition> init();

  /// A new build whose frames are made by a compositor of class `Compositor` (this one or one derived from it, with an init() of
  /// its own), that is by the host. Never null; what cannot be placed is logged. The timeline must not be edited meanwhile.
  template <class Compositor = LUMAVComposition>
  static std::shared_ptr<LUMAVCompositionData> buildCompositionData(const std::shared_ptr<LUMComposition>& composition) {
    static_assert(std::is_same_v<decltype(Compositor::init()), std::shared_ptr<Compositor>>,
                  "a compositor class declares init() of its own");
    return buildWithCompositorClass(
        composition, {NSStringFromClass(typeid(Compositor)), [] { return Compositor::init(); }, &typeid(Compositor)});
  }
  /// The same, but frames are made by the platform from layer instructions.
  static std::shared_ptr<LUMAVCompositionData> buildNativeCompositionData(const std::shared_ptr<LUMComposition>& composition);
  /// The same, but `applier` makes each frame out of that of the first composition track; the other tracks are not seen.
  static std::shared_ptr<LUMAVCompositionData> buildNativeCompositionWithCIFilterBlock(
      const std::shared_ptr<LUMComposition>& composition, AVCIImageFilteringHandler applier);

  NSDictionary sourcePixelBufferAttributes() const override;
  NSDictionary requiredPixelBufferAttributesForRenderContext() const override;
  void renderContextChanged(const std::shared_ptr<const AVVideoCompositionRenderContext>&) override {}
  void startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) override;
  /// What is already queued is finished as cancelled, what the host holds is not recalled. Returns at once.
  void cancelAllPendingVideoCompositionRequests() override;

  bool shouldCancelAllRequests() const { return shouldCancelAllRequests_; }
  void setShouldCancelAllRequests(bool value) { shouldCancelAllRequests_ = value; }
  dispatch_queue_t renderingQueue() const;
  void setRenderingQueue(dispatch_queue_t renderingQueue);

 protected:
  LUMAVComposition();

 private:
  static std::shared_ptr<LUMAVCompositionData> buildWithCompositorClass(const std::shared_ptr<LUMComposition>& composition,
                                                                        AVVideoCompositingClass compositorClass);

  std::atomic<bool> shouldCancelAllRequests_{false};
  mutable std::mutex queueMutex_;
  dispatch_queue_t renderingQueue_;
};

}  // namespace vidloom
