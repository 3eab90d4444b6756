// Writes a clip to a movie in which this program makes every frame: it turns the clip's colours grey from the left to the right.
// export_host_drawn IN OUT.mp4
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"
#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

using namespace vidloom;

namespace {

using Request = AVAsynchronousVideoCompositionRequest;

uint8_t* rowOf(const CVPixelBufferRef& buffer, size_t plane, size_t y) {
  return static_cast<uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer, plane)) +
         y * CVPixelBufferGetBytesPerRowOfPlane(buffer, plane);
}

/// Copies a '420f' frame; the first `greyPairs` colour pairs of each row become grey.
void drawGrey(const CVPixelBufferRef& from, const CVPixelBufferRef& to, size_t greyPairs) {
  CVPixelBufferLockBaseAddress(from, kCVPixelBufferLock_ReadOnly);
  CVPixelBufferLockBaseAddress(to, 0);
  for (size_t plane = 0; plane < 2; ++plane) {
    const size_t bytesPerSample = plane + 1;
    const size_t width = std::min(CVPixelBufferGetWidthOfPlane(from, plane), CVPixelBufferGetWidthOfPlane(to, plane));
    const size_t height = std::min(CVPixelBufferGetHeightOfPlane(from, plane), CVPixelBufferGetHeightOfPlane(to, plane));
    for (size_t y = 0; y < height; ++y) {
      std::memcpy(rowOf(to, plane, y), rowOf(from, plane, y), width * bytesPerSample);
      if (plane == 1) std::memset(rowOf(to, plane, y), 128, 2 * std::min(greyPairs, width));
    }
  }
  CVPixelBufferUnlockBaseAddress(to, 0);
  CVPixelBufferUnlockBaseAddress(from, kCVPixelBufferLock_ReadOnly);
}

class Painter : public LUMAVAsyncDrawDelegate {
 public:
  Painter(std::shared_ptr<LUMTrack> clip, double seconds) : clip_(std::move(clip)), seconds_(seconds) {}

  /// On the compositor's queue: hands the work on and returns, so that several frames are drawn at a time.
  void drawAsync(const std::shared_ptr<Request>& request, const std::shared_ptr<LUMAVRoutePipeline>& pipeline) override {
    const auto trackID = pipeline->pixelBufferTrackIdForTrack(clip_);
    const CVPixelBufferRef source = trackID ? request->sourceFrameByTrackID(*trackID) : nullptr;
    const double done = CMTimeGetSeconds(request->compositionTime()) / seconds_;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED), [request, source, done] { draw(request, source, done); });
  }

 private:
  static void draw(const std::shared_ptr<Request>& request, const CVPixelBufferRef& source, double done) {
    const CVPixelBufferRef frame = request->renderContext()->newPixelBuffer();
    if (!frame || !source) {
      return request->finishWithError(NSError("Painter", 1, {{NSLocalizedDescriptionKey, std::string("nothing to draw")}}));
    }
    const auto pairs = static_cast<double>(CVPixelBufferGetWidthOfPlane(frame, 1));
    drawGrey(source, frame, static_cast<size_t>(pairs * std::clamp(done, 0.0, 1.0)));
    request->finishWithComposedVideoFrame(frame);
  }

  const std::shared_ptr<LUMTrack> clip_;
  const double seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto clip = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(argv[1]), 1);
  const auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks({clip});
  const auto timeline = LUMComposition::initWithSize(clip->aspectSize(), 30);
  timeline->addInstructions({instruction});

  const auto painter = std::make_shared<Painter>(clip, CMTimeGetSeconds(clip->duration()));
  const auto render = LUMRender::initWithComposition(timeline, argv[2]);
  render->setAsyncDelegate(painter);  // held weakly
  const auto delegate = std::make_shared<LUMRenderDelegate>();
  int result = 1;
  delegate->renderDidCompleteWithURL = [&](const std::filesystem::path&) {
    result = render->writer()->status() == AVAssetWriterStatusCompleted ? 0 : 1;
    RunLoop::main().stop();
  };
  delegate->renderDidFailedWithError = [](const NSError& error) {
    const auto cause = error.underlyingError();
    std::printf("%s\n", (cause ? *cause : error).localizedDescription().c_str());
    RunLoop::main().stop();
  };
  render->setDelegate(delegate);
  render->generate();
  if (!render->setUpError()) RunLoop::main().run();
  return result;
}
