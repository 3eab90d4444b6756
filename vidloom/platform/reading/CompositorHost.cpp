#include "vidloom/platform/reading/CompositorHost.h"

#include <cmath>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/reading/PixelFormats.h"

namespace vidloom {

namespace {

std::optional<OSType> formatIn(const NSDictionary& attributes, const char* name, std::optional<NSError>* error) {
  const std::optional<OSType> format = pixelFormatIn(attributes);
  if (!format && error) {
    *error = AVMakeError(AVErrorInvalidVideoComposition,
                         std::string("The custom compositor's ") + name + " name no pixel format among '420f', '420v' and 'BGRA'");
  }
  return format;
}

}  // namespace

std::shared_ptr<CompositorHost> CompositorHost::make(std::shared_ptr<AVVideoCompositing> compositor, int width, int height,
                                                     float renderScale, const PictureColor& color, std::optional<NSError>* error) {
  const auto source = formatIn(compositor->sourcePixelBufferAttributes(), "sourcePixelBufferAttributes", error);
  if (!source) return nullptr;
  const auto required =
      formatIn(compositor->requiredPixelBufferAttributesForRenderContext(), "requiredPixelBufferAttributesForRenderContext", error);
  if (!required) return nullptr;
  auto context = std::make_shared<const RenderContext>(width, height, renderScale, *required, color);
  return std::shared_ptr<CompositorHost>(new CompositorHost(std::move(compositor), *source, std::move(context), color));
}

CompositorHost::CompositorHost(std::shared_ptr<AVVideoCompositing> compositor, OSType sourceFormat,
                               std::shared_ptr<const RenderContext> context, PictureColor color)
    : compositor_(std::move(compositor)),
      sourceFormat_(sourceFormat),
      context_(std::move(context)),
      color_(std::move(color)),
      queue_(dispatch_queue_create("vidloom.reader.compositor", DISPATCH_QUEUE_SERIAL)) {}

void CompositorHost::start(GatheredFrame frame, std::function<bool()> isWanted, CompositionRequest::Receiver receiver) {
  dispatch_async(queue_, [self = shared_from_this(), frame = std::move(frame), isWanted = std::move(isWanted),
                          receiver = std::move(receiver)]() mutable {
    if (isWanted()) self->startOnQueue(frame, std::move(receiver));
  });
}

void CompositorHost::startOnQueue(GatheredFrame& frame, CompositionRequest::Receiver receiver) {
  if (!knowsContext_) {
    knowsContext_ = true;
    compositor_->renderContextChanged(context_);
  }
  std::vector<CompositionRequest::Source> sources;
  for (const SourceFrame& source : frame.sources) {
    CVPixelBufferRef buffer = sourceBuffer(source.source);
    if (!buffer) return receiver({nullptr, AVMakeError(AVErrorOutOfMemory, "No memory for a source frame")});
    sources.push_back({source.trackID, std::move(buffer)});
  }
  compositor_->startVideoCompositionRequest(
      std::make_shared<CompositionRequest>(frame.time, context_, frame.instruction, std::move(sources), std::move(receiver)));
}

CVPixelBufferRef CompositorHost::sourceBuffer(const SourcePicture& source) {
  PictureRef picture = source.picture;
  const auto width = static_cast<int>(std::lround(source.displaySize.width));
  const auto height = static_cast<int>(std::lround(source.displaySize.height));
  const bool fits = picture->width == width && picture->height == height;
  // An alpha plane would not survive the adaptation; such pictures keep their own matrix.
  if (!picture->hasAlpha() && (!fits || picture->color != color_)) {
    picture = adapter_.compose({{picture, source.displaySize}}, width, height, color_);
  }
  return CVPixelBufferCreateWithPicture(picture, sourceFormat_);
}

void CompositorHost::cancelAll() {
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED),
                 [compositor = compositor_] { compositor->cancelAllPendingVideoCompositionRequests(); });
}

}  // namespace vidloom
