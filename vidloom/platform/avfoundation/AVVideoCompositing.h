// Custom compositors: objects that make the frames of a video composition themselves.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

#include "vidloom/platform/avfoundation/AVVideoCompositionInstruction.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// What composed frames have to look like. Immutable.
class AVVideoCompositionRenderContext {
 public:
  virtual ~AVVideoCompositionRenderContext() = default;
  virtual CGSize size() const = 0;  ///< render size x render scale, in pixels
  virtual float renderScale() const = 0;
  /// A buffer of the compositor's required format at size(), from a pool, not cleared. Null when memory is out. Any thread.
  virtual CVPixelBufferRef newPixelBuffer() const = 0;
};

/// One frame to be composed. Finished exactly once, by one of the three endings, from any thread, at once or later; what comes
/// after the first ending is dropped and logged.
class AVAsynchronousVideoCompositionRequest {
 public:
  virtual ~AVAsynchronousVideoCompositionRequest() = default;
  virtual CMTime compositionTime() const = 0;
  virtual std::shared_ptr<const AVVideoCompositionRenderContext> renderContext() const = 0;
  /// The very object that was put into the video composition's list.
  virtual std::shared_ptr<AVVideoCompositionInstruction> videoCompositionInstruction() const = 0;
  /// The tracks that have a frame at this time.
  virtual std::vector<CMPersistentTrackID> sourceTrackIDs() const = 0;
  /// In the compositor's source format; read-only. Null for an unknown id or where the track is empty at this time.
  virtual CVPixelBufferRef sourceFrameByTrackID(CMPersistentTrackID trackID) const = 0;

  /// The buffer must not be changed any more. A source frame may be returned as it is.
  virtual void finishWithComposedVideoFrame(const CVPixelBufferRef& composedVideoFrame) = 0;
  /// Reading fails with AVErrorVideoCompositorFailed wrapping `error`.
  virtual void finishWithError(const NSError& error) = 0;
  /// The request gives no frame.
  virtual void finishCancelledRequest() = 0;
};

/// A compositor. Made by the platform from the class that a video composition names, one an owner (reader output or player item).
class AVVideoCompositing {
 public:
  virtual ~AVVideoCompositing() = default;
  /// Read once, before the first request; must name a pixel format.
  virtual NSDictionary sourcePixelBufferAttributes() const { return {}; }
  virtual NSDictionary requiredPixelBufferAttributesForRenderContext() const { return {}; }
  /// Before the first request and whenever the context changes.
  virtual void renderContextChanged(const std::shared_ptr<const AVVideoCompositionRenderContext>&) {}
  /// On a queue of the platform; may be called again before an earlier request is finished. Must not wait for the request.
  virtual void startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>&) {}
  virtual void cancelAllPendingVideoCompositionRequests() {}
};

/// A compositor class as a value: its name and how to make one. Equal when the names are and, where both say, the types.
struct AVVideoCompositingClass {
  std::string name;  ///< empty: no class
  std::function<std::shared_ptr<AVVideoCompositing>()> make;
  const std::type_info* type = nullptr;
  explicit operator bool() const { return !name.empty(); }
  friend bool operator==(const AVVideoCompositingClass& a, const AVVideoCompositingClass& b) {
    return a.name == b.name && (!a.type || !b.type || *a.type == *b.type);
  }
};

}  // namespace vidloom
