// Requests made by hand, for tests of what a host draws.
#pragma once

#include <gtest/gtest.h>

#include <future>
#include <map>

#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom::testing {

struct Rgb {
  int red = 0, green = 0, blue = 0;
  friend bool operator==(const Rgb&, const Rgb&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Rgb& c) {
    return out << "(" << c.red << ", " << c.green << ", " << c.blue << ")";
  }
};

/// A buffer whose pixels are given as B, G, R, A bytes in one number, 0xAARRGGBB.
template <class Pixel>
CVPixelBufferRef makeBuffer(size_t width, size_t height, Pixel pixel) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_32BGRA, {}, &buffer), kCVReturnSuccess);
  CVPixelBufferLockBaseAddress(buffer, 0);
  auto* const bytes = static_cast<uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint32_t value = pixel(static_cast<int>(x), static_cast<int>(y));
      for (size_t part = 0; part < 4; ++part) {
        bytes[y * CVPixelBufferGetBytesPerRow(buffer) + 4 * x + part] = static_cast<uint8_t>(value >> (8 * part));
      }
    }
  }
  CVPixelBufferUnlockBaseAddress(buffer, 0);
  return buffer;
}
inline CVPixelBufferRef makeBuffer(size_t width, size_t height, uint32_t pixel) {
  return makeBuffer(width, height, [pixel](int, int) { return pixel; });
}

/// The buffer's content as R, G, B, whatever its format.
class Pixels {
 public:
  explicit Pixels(const CVPixelBufferRef& buffer)
      : bgra_(CVPixelBufferCreateWithPicture(CVPixelBufferCopyPicture(buffer), kCVPixelFormatType_32BGRA)) {
    CVPixelBufferLockBaseAddress(bgra_, kCVPixelBufferLock_ReadOnly);
  }
  Rgb at(int x, int y) const {
    const auto* const pixel = static_cast<const uint8_t*>(CVPixelBufferGetBaseAddress(bgra_)) +
                              static_cast<size_t>(y) * CVPixelBufferGetBytesPerRow(bgra_) + 4 * static_cast<size_t>(x);
    return {pixel[2], pixel[1], pixel[0]};
  }
  int width() const { return static_cast<int>(CVPixelBufferGetWidth(bgra_)); }
  int height() const { return static_cast<int>(CVPixelBufferGetHeight(bgra_)); }
  /// The largest difference of a channel from that colour.
  int distanceFrom(const Rgb& color) const {
    int largest = 0;
    for (int y = 0; y < height(); ++y) {
      for (int x = 0; x < width(); ++x) largest = std::max(largest, distance(at(x, y), color));
    }
    return largest;
  }
  static int distance(const Rgb& a, const Rgb& b) {
    return std::max({std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue)});
  }

 private:
  CVPixelBufferRef bgra_;
};

class HandContext : public AVVideoCompositionRenderContext {
 public:
  HandContext(size_t width, size_t height, OSType format, float scale = 1)
      : width_(width), height_(height), format_(format), scale_(scale) {}
  CGSize size() const override { return CGSizeMake(static_cast<double>(width_), static_cast<double>(height_)); }
  float renderScale() const override { return scale_; }
  CVPixelBufferRef newPixelBuffer() const override {
    CVPixelBufferRef buffer;
    CVPixelBufferCreate(width_, height_, format_, {}, &buffer);
    return buffer;
  }

 private:
  size_t width_, height_;
  OSType format_;
  float scale_;
};

/// Source frames by the id of the composition track; the answer is waited for.
class HandRequest : public AVAsynchronousVideoCompositionRequest {
 public:
  HandRequest(std::shared_ptr<const AVVideoCompositionRenderContext> context, const CMTime& time,
              std::map<CMPersistentTrackID, CVPixelBufferRef> sources)
      : context_(std::move(context)), time_(time), sources_(std::move(sources)) {}

  CMTime compositionTime() const override { return time_; }
  std::shared_ptr<const AVVideoCompositionRenderContext> renderContext() const override { return context_; }
  std::shared_ptr<AVVideoCompositionInstruction> videoCompositionInstruction() const override { return nullptr; }
  std::vector<CMPersistentTrackID> sourceTrackIDs() const override { return {}; }
  CVPixelBufferRef sourceFrameByTrackID(CMPersistentTrackID trackID) const override {
    const auto found = sources_.find(trackID);
    return found == sources_.end() ? nullptr : found->second;
  }
  void finishWithComposedVideoFrame(const CVPixelBufferRef& composedVideoFrame) override { frame_.set_value(composedVideoFrame); }
  void finishWithError(const NSError& error) override {
    ADD_FAILURE() << error.localizedDescription();
    frame_.set_value(nullptr);
  }
  void finishCancelledRequest() override { frame_.set_value(nullptr); }

  CVPixelBufferRef wait() { return frame_.get_future().get(); }

 private:
  const std::shared_ptr<const AVVideoCompositionRenderContext> context_;
  const CMTime time_;
  const std::map<CMPersistentTrackID, CVPixelBufferRef> sources_;
  std::promise<CVPixelBufferRef> frame_;
};

/// Every track lies on the composition track of its own id.
class HandPipeline : public LUMAVRoutePipeline {
 public:
  void process(const std::shared_ptr<LUMTrack>&, const std::shared_ptr<LUMInstruction>&,
               const std::shared_ptr<AVMutableComposition>&) override {}
  std::optional<CMPersistentTrackID> pixelBufferTrackIdForTrack(const std::shared_ptr<LUMTrack>& track) const override {
    return static_cast<CMPersistentTrackID>(track->objectId());
  }
  void finish() override {}
};

/// A track of moving pictures of that size.
class HandTrack : public LUMTrack {
 public:
  static std::shared_ptr<HandTrack> make(uint64_t objectId, const CGSize& size, const CMTimeRange& range,
                                         const CGAffineTransform& preferred = CGAffineTransformIdentity) {
    struct Concrete : HandTrack {};
    auto track = std::make_shared<Concrete>();
    track->prepareWithId(objectId);
    track->aspectSize_ = size;
    track->preferred_ = preferred;
    track->setTransform(preferred);
    track->setStart(range.start);
    track->updateAssetDuration(range.duration);
    return track;
  }
  CGAffineTransform preferredTransform() const override { return preferred_; }

 private:
  CGAffineTransform preferred_;
};

}  // namespace vidloom::testing
