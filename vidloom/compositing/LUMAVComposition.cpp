#include "vidloom/compositing/LUMAVComposition.h"

#include <algorithm>
#include <unordered_map>

#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"
#include "vidloom/timeline/LUMRenderSettings.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

/// A track of the timeline, when it ends, and the first instruction that holds it.
struct Entry {
  CMTime end;
  std::shared_ptr<LUMTrack> track;
  std::shared_ptr<LUMInstruction> instruction;
};

std::vector<Entry> tracksByEnd(const LUMComposition& composition) {
  std::vector<Entry> entries;
  std::unordered_map<const LUMTrack*, std::shared_ptr<LUMInstruction>> firstHolder;
  for (const auto& instruction : composition.getCompositionInstructions()) {
    for (const auto& track : instruction->getInstructionTracks()) {
      const auto& holder = firstHolder.try_emplace(track.get(), instruction).first->second;
      entries.push_back({CMTimeAdd(track->start(), track->duration()), track, holder});
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return CMTimeCompare(a.end, b.end) < 0; });
  return entries;
}

/// The placement that every builder begins with.
std::shared_ptr<AVMutableComposition> placeTracks(const std::shared_ptr<LUMComposition>& composition,
                                                  LUMAVCompositionInstruction& pipeline) {
  auto layout = AVMutableComposition::composition();
  if (composition) {
    layout->setNaturalSize(composition->renderSize());
    for (const Entry& entry : tracksByEnd(*composition)) pipeline.process(entry.track, entry.instruction, layout);
  }
  pipeline.finish();
  return layout;
}

CMTime frameDurationOf(const std::shared_ptr<LUMComposition>& composition) {
  return CMTimeMake(1, composition ? static_cast<CMTimeScale>(composition->fps()) : 0);
}

/// Visible exactly while one of the item's tracks runs, with that track's transform.
std::shared_ptr<AVMutableVideoCompositionLayerInstruction> layerOf(const AVMutableCompositionTrack_Item& item) {
  auto layer = AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(item.track());
  for (const auto& track : item.innerTracks()) {
    layer->setTransform(track->transform(), track->start());
    layer->setOpacity(1.0f, track->start());
    layer->setOpacity(0.0f, CMTimeAdd(track->start(), track->duration()));
  }
  return layer;
}

std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layersOf(const LUMAVCompositionInstruction& pipeline) {
  std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers;
  for (const auto& item : pipeline.composition_tracks()) {
    if (item->mediaType() == AVMediaTypeVideo) layers.push_back(layerOf(*item));
  }
  return layers;
}

void setNativeProperties(AVMutableVideoComposition& videoComposition, const LUMComposition& composition) {
  videoComposition.setRenderSize(composition.renderSize());
  videoComposition.setAnimationTool(composition.coreAnimationTool());
  videoComposition.setColorPrimaries(composition.colorPrimaries());
  videoComposition.setColorYCbCrMatrix(composition.colorYCbCrMatrix());
  videoComposition.setColorTransferFunction(composition.colorTransferFunction());
}

NSDictionary bufferAttributes() {
  const OSType format = LUMRenderSettings::shared()->isYCbCrPixelFormatSupported() ? kCVPixelFormatType_420YpCbCr8BiPlanarFullRange
                                                                                   : kCVPixelFormatType_32BGRA;
  return {{kCVPixelBufferPixelFormatTypeKey, int64_t{format}},
          {kCVPixelBufferMetalCompatibilityKey, true},
          {kCVPixelBufferOpenGLCompatibilityKey, true}};
}

void serve(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) {
  const auto instruction = std::dynamic_pointer_cast<LUMAVCompositionInstruction>(request->videoCompositionInstruction());
  if (instruction) {
    instruction->drawWithRequest(request);
  } else {
    request->finishWithError(NSError::errorWithDomain(
        "LUMAVComposition", -1, {{NSLocalizedDescriptionKey, std::string("the instruction is no LUMAVCompositionInstruction")}}));
  }
}

}  // namespace

LUMAVComposition::LUMAVComposition()
    : renderingQueue_(dispatch_queue_create("corvane.compositor_serial_queue", DISPATCH_QUEUE_SERIAL)) {}

std::shared_ptr<LUMAVComposition> LUMAVComposition::init() {
  struct Concrete : LUMAVComposition {};
  return std::make_shared<Concrete>();
}

std::shared_ptr<LUMAVCompositionData> LUMAVComposition::buildWithCompositorClass(const std::shared_ptr<LUMComposition>& composition,
                                                                                 AVVideoCompositingClass compositorClass) {
  auto videoComposition = AVMutableVideoComposition::videoComposition();
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(composition);
  auto layout = placeTracks(composition, *pipeline);
  videoComposition->setInstructions({pipeline});
  videoComposition->setCustomVideoCompositorClass(std::move(compositorClass));
  videoComposition->setRenderSize(composition ? composition->renderSize() : CGSizeZero);
  videoComposition->setFrameDuration(frameDurationOf(composition));
  return LUMAVCompositionData::initWithVideoComposition(std::move(videoComposition), std::move(layout), nullptr);
}

std::shared_ptr<LUMAVCompositionData> LUMAVComposition::buildNativeCompositionData(
    const std::shared_ptr<LUMComposition>& composition) {
  auto videoComposition = AVMutableVideoComposition::videoComposition();
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(composition);
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  instruction->setTimeRange(pipeline->timeRange());
  auto layout = placeTracks(composition, *pipeline);
  instruction->setLayerInstructions(layersOf(*pipeline));
  if (composition && composition->enablePostProcessing()) instruction->setEnablePostProcessing(true);
  videoComposition->setInstructions({instruction});
  if (composition) setNativeProperties(*videoComposition, *composition);
  videoComposition->setFrameDuration(frameDurationOf(composition));
  return LUMAVCompositionData::initWithVideoComposition(std::move(videoComposition), std::move(layout), nullptr);
}

std::shared_ptr<LUMAVCompositionData> LUMAVComposition::buildNativeCompositionWithCIFilterBlock(
    const std::shared_ptr<LUMComposition>& composition, AVCIImageFilteringHandler applier) {
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(composition);
  auto layout = placeTracks(composition, *pipeline);
  auto videoComposition = AVMutableVideoComposition::videoCompositionWithAsset(layout, std::move(applier));
  if (composition) setNativeProperties(*videoComposition, *composition);
  videoComposition->setFrameDuration(frameDurationOf(composition));
  return LUMAVCompositionData::initWithVideoComposition(std::move(videoComposition), std::move(layout), nullptr);
}

NSDictionary LUMAVComposition::sourcePixelBufferAttributes() const { return bufferAttributes(); }

NSDictionary LUMAVComposition::requiredPixelBufferAttributesForRenderContext() const { return bufferAttributes(); }

void LUMAVComposition::startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) {
  dispatch_async(renderingQueue(), [weakSelf = weak_from_this(), request] {
    const auto self = weakSelf.lock();
    if (self && self->shouldCancelAllRequests()) {
      request->finishCancelledRequest();
      return;
    }
    serve(request);
  });
}

void LUMAVComposition::cancelAllPendingVideoCompositionRequests() {
  setShouldCancelAllRequests(true);
  dispatch_barrier_async(renderingQueue(), [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->setShouldCancelAllRequests(false);
  });
}

dispatch_queue_t LUMAVComposition::renderingQueue() const {
  const std::lock_guard lock(queueMutex_);
  return renderingQueue_;
}

void LUMAVComposition::setRenderingQueue(dispatch_queue_t renderingQueue) {
  const std::lock_guard lock(queueMutex_);
  renderingQueue_ = std::move(renderingQueue);
}

}  // namespace vidloom
