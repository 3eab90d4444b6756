#include "vidloom/platform/reading/FilterCompositor.h"

#include <algorithm>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/CIFilterInstruction.h"
#include "vidloom/platform/coreimage/CIContext.h"

namespace vidloom {

namespace {

CGRect rectOf(const CGSize& size) { return CGRectMake(0, 0, size.width, size.height); }

/// The frame upright and scaled, its bottom left at the origin. `preferredTransform` counts in y down.
CIImageRef uprightImage(const CIImageRef& image, const CGAffineTransform& preferredTransform, double scale) {
  const CGAffineTransform& turn = preferredTransform;
  CGAffineTransform map{turn.a * scale, -turn.b * scale, -turn.c * scale, turn.d * scale, 0, 0};
  if (map == CGAffineTransformIdentity) return image;
  const CGRect bounds = CGRectApplyAffineTransform(image->extent(), map);
  map.tx = -bounds.origin.x;
  map.ty = -bounds.origin.y;
  return image->imageByApplyingTransform(map);
}

CIImageRef blackImage(const CGSize& size) { return CIImage::imageWithColor(0, 0, 0, 1)->imageByCroppingToRect(rectOf(size)); }

/// Stays when the process ends: frames may still be under way then.
const std::shared_ptr<CIContext>& sharedContext() {
  static const auto& context = *std::make_unique<std::shared_ptr<CIContext>>(CIContext::context()).release();
  return context;
}

}  // namespace

class FilterCompositor::Request : public AVAsynchronousCIImageFilteringRequest {
 public:
  Request(std::shared_ptr<AVAsynchronousVideoCompositionRequest> request, CIImageRef source, PictureColor color)
      : request_(std::move(request)), source_(std::move(source)), color_(std::move(color)) {}

  CGSize renderSize() const override { return request_->renderContext()->size(); }
  CMTime compositionTime() const override { return request_->compositionTime(); }
  CIImageRef sourceImage() const override { return source_; }

  void finishWithImage(const CIImageRef& filteredImage, const std::shared_ptr<CIContext>& context) override {
    if (!filteredImage) return finishWithError(AVMakeError(AVErrorUnknown, "The request was finished with a null image"));
    std::optional<NSError> error;
    const auto picture =
        (context ? context : sharedContext())->createPicture(filteredImage, rectOf(renderSize()), color_, false, &error);
    if (!picture) return finishWithError(error.value_or(AVMakeError(AVErrorUnknown, "The image could not be rendered")));
    request_->finishWithComposedVideoFrame(CVPixelBufferCreateWithPicture(picture, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange));
  }
  void finishWithError(const NSError& error) override { request_->finishWithError(error); }

 private:
  const std::shared_ptr<AVAsynchronousVideoCompositionRequest> request_;
  const CIImageRef source_;
  const PictureColor color_;
};

bool FilterCompositor::isNeededFor(const AVMutableVideoComposition& composition) {
  const auto& instructions = composition.instructions();
  return std::any_of(instructions.begin(), instructions.end(), [](const auto& instruction) {
    return std::dynamic_pointer_cast<CIFilterInstruction>(instruction) != nullptr;
  });
}

NSDictionary FilterCompositor::attributes() {
  return {{kCVPixelBufferPixelFormatTypeKey, int64_t{kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}}};
}

void FilterCompositor::renderContextChanged(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) {
  if (const auto known = std::dynamic_pointer_cast<const RenderContext>(context)) color_ = known->color();
}

void FilterCompositor::startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) {
  const auto instruction = std::dynamic_pointer_cast<CIFilterInstruction>(request->videoCompositionInstruction());
  if (!instruction || !instruction->handler()) {
    return request->finishWithError(AVMakeError(AVErrorInvalidVideoComposition, "The video composition has no filter handler"));
  }
  const auto context = request->renderContext();
  const auto trackIDs = request->sourceTrackIDs();
  const auto picture = trackIDs.empty() ? nullptr : CVPixelBufferCopyPicture(request->sourceFrameByTrackID(trackIDs.front()));
  const CIImageRef source =
      picture ? uprightImage(CIImage::imageWithPicture(picture), instruction->preferredTransform(), double{context->renderScale()})
              : blackImage(context->size());
  instruction->handler()(std::make_shared<Request>(request, source, color_));
}

}  // namespace vidloom
