// One frame of a video composition that a filter handler makes.
#pragma once

#include <functional>
#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/platform/coremedia/CMTime.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

class CIContext;

/// Finished exactly once, by one of the two endings, from any thread, at once or later; what comes after the first ending is
/// dropped and logged. A request that is released unanswered counts as failed.
class AVAsynchronousCIImageFilteringRequest {
 public:
  virtual ~AVAsynchronousCIImageFilteringRequest() = default;
  /// In pixels: render size x render scale.
  virtual CGSize renderSize() const = 0;
  virtual CMTime compositionTime() const = 0;
  /// The track's frame, upright, its bottom left at the origin (y up); black over renderSize() where the track is empty.
  virtual CIImageRef sourceImage() const = 0;

  /// Renders what lies within (0, 0) and renderSize(), over black, on the calling thread. The source image itself is passed on as
  /// it is. A null context: a shared one. A null image counts as an error.
  virtual void finishWithImage(const CIImageRef& filteredImage, const std::shared_ptr<CIContext>& context) = 0;
  /// Reading fails with AVErrorVideoCompositorFailed wrapping `error`.
  virtual void finishWithError(const NSError& error) = 0;
};

/// Called on a queue of the platform, several times before the first request is finished. Must not wait for the request.
using AVCIImageFilteringHandler = std::function<void(const std::shared_ptr<AVAsynchronousCIImageFilteringRequest>&)>;

}  // namespace vidloom
