#include "hostkit/SnapshotPainter.h"

namespace vidloom {

std::shared_ptr<SnapshotPainter> SnapshotPainter::make(std::shared_ptr<const TimelineSnapshot> snapshot,
                                                       const std::shared_ptr<const AVVideoCompositionRenderContext>& context) {
  const std::shared_ptr<SnapshotPainter> painter(new SnapshotPainter);
  painter->snapshot_ = std::move(snapshot);
  painter->context_ = context;
  painter->scale_ = static_cast<double>(context->renderScale());
  painter->composer_ = CVFrameComposer::initWithModel(context->newPixelBuffer());
  return painter->composer_ ? painter : nullptr;
}

bool SnapshotPainter::isFor(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) const {
  return context_.lock() == context;
}

CVPixelBufferRef SnapshotPainter::draw(const AVAsynchronousVideoCompositionRequest& request, const LUMAVRoutePipeline& pipeline) {
  const CMTime time = request.compositionTime();
  std::vector<CVFrameLayer> layers;
  for (const SnapshotTrack& track : snapshot_->tracks()) {
    if (!track.isVisibleAt(time)) continue;
    if (track.isStill) {
      auto layer = stillLayer(track);
      if (!layer) return nullptr;
      layers.push_back(std::move(*layer));
      continue;
    }
    const auto source = pipeline.pixelBufferTrackIdForTrack(track.marker);
    CVFrameLayer layer = scaledLayer(track);
    layer.pixelBuffer = source ? request.sourceFrameByTrackID(*source) : nullptr;
    layers.push_back(std::move(layer));
  }
  return composer_->compose(layers);
}

std::optional<CVFrameLayer> SnapshotPainter::stillLayer(const SnapshotTrack& track) {
  const std::lock_guard lock(mutex_);
  const auto known = stills_.find(&track);
  if (known != stills_.end()) return known->second;
  const auto layer = composer_->settle(scaledLayer(track));
  if (layer) stills_.emplace(&track, *layer);
  return layer;
}

CVFrameLayer SnapshotPainter::scaledLayer(const SnapshotTrack& track) const {
  CVFrameLayer layer = track.layer;
  layer.transform = CGAffineTransformConcat(layer.transform, CGAffineTransformMake(scale_, 0, 0, scale_, 0, 0));
  return layer;
}

}  // namespace vidloom
