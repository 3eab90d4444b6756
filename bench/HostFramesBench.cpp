// What it costs to have a host make the frames: handing it one as '420f', taking one back, and whole exports beside native ones.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/corevideo/CVPixelBufferPool.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

constexpr OSType kFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
/// So many frames are alive at a time, as between a decoder and an encoder: more than fit into a cache.
constexpr size_t kFramesUnderWay = 8;

std::vector<PictureRef> makeFrames(int width, int height) {
  std::vector<PictureRef> frames;
  for (size_t i = 0; i < kFramesUnderWay; ++i) {
    const auto picture = PicturePool::shared().make(width, height, PictureColor{}, false);
    for (int y = 0; y < height; ++y)
      std::memset(picture->mutableY() + y * picture->y.stride, 16 + (y + int(i)) % 219, size_t(width));
    for (int y = 0; y < height / 2; ++y) {
      std::memset(picture->mutableCb() + y * picture->cb.stride, 16 + y % 224, static_cast<size_t>(width / 2));
      std::memset(picture->mutableCr() + y * picture->cr.stride, 240 - y % 224, static_cast<size_t>(width / 2));
    }
    frames.push_back(picture);
  }
  return frames;
}

void copyFrame(benchmark::State& state) {
  const auto width = static_cast<size_t>(state.range(0)), height = static_cast<size_t>(state.range(1));
  const auto frames = makeFrames(int(width), int(height));
  std::vector<std::vector<uint8_t>> copies(kFramesUnderWay, std::vector<uint8_t>(width * height * 3 / 2));
  size_t index = 0;
  for (auto _ : state) {
    const Picture& from = *frames[index++ % kFramesUnderWay];
    uint8_t* to = copies[index % kFramesUnderWay].data();
    for (size_t y = 0; y < height; ++y, to += width) std::memcpy(to, from.y.data + ptrdiff_t(y) * from.y.stride, width);
    for (size_t y = 0; y < height / 2; ++y, to += width) {
      std::memcpy(to, from.cb.data + ptrdiff_t(y) * from.cb.stride, width / 2);
      std::memcpy(to + width / 2, from.cr.data + ptrdiff_t(y) * from.cr.stride, width / 2);
    }
    benchmark::ClobberMemory();
  }
}

void handOverFrame(benchmark::State& state) {
  const auto frames = makeFrames(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  std::vector<CVPixelBufferRef> underWay(kFramesUnderWay / 2);
  size_t index = 0;
  for (auto _ : state) {
    CVPixelBufferRef& buffer = underWay[index % underWay.size()];
    buffer = CVPixelBufferCreateWithPicture(frames[index++ % kFramesUnderWay], kFormat);
    CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
    benchmark::DoNotOptimize(CVPixelBufferGetBaseAddressOfPlane(buffer, 0));
    CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
  }
}

void takeFrameBack(benchmark::State& state) {
  CVPixelBufferPoolRef pool;
  const NSDictionary attributes{{kCVPixelBufferPixelFormatTypeKey, int64_t{kFormat}},
                                {kCVPixelBufferWidthKey, state.range(0)},
                                {kCVPixelBufferHeightKey, state.range(1)}};
  CVPixelBufferPoolCreate({}, attributes, &pool);
  for (auto _ : state) {
    CVPixelBufferRef buffer;
    CVPixelBufferPoolCreatePixelBuffer(pool, &buffer);
    benchmark::DoNotOptimize(CVPixelBufferCopyPicture(buffer));
  }
}

/// Gives back the source frame, either untouched or after reading its pixels.
class Echo : public LUMAVAsyncDrawDelegate {
 public:
  explicit Echo(bool looks) : looks_(looks) {}
  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>&) override {
    const auto ids = request->sourceTrackIDs();
    const CVPixelBufferRef frame = ids.empty() ? request->renderContext()->newPixelBuffer() : request->sourceFrameByTrackID(ids[0]);
    if (looks_) {
      CVPixelBufferLockBaseAddress(frame, kCVPixelBufferLock_ReadOnly);
      CVPixelBufferUnlockBaseAddress(frame, kCVPixelBufferLock_ReadOnly);
    }
    request->finishWithComposedVideoFrame(frame);
  }

 private:
  const bool looks_;
};

enum Path : int64_t { native, host, hostThatLooks };

/// The clip that VIDLOOM_BENCH_CLIP names, written with x264's veryfast.
void exportClip(benchmark::State& state) {
  const char* path = std::getenv("VIDLOOM_BENCH_CLIP");
  if (path == nullptr) return state.SkipWithError("VIDLOOM_BENCH_CLIP names no clip");
  const auto output = std::filesystem::temp_directory_path() / "vidloom-host-bench.mp4";
  for (auto _ : state) {
    const auto clip = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(path), 1);
    const auto instruction = LUMInstruction::initWithId(1);
    instruction->addTracks({clip});
    const auto timeline = LUMComposition::initWithSize(clip->aspectSize(), 30);
    timeline->addInstructions({instruction});
    const auto render = LUMRender::initWithComposition(timeline, output);
    const auto echo = std::make_shared<Echo>(state.range(0) == hostThatLooks);
    render->setUseNativeComposition(state.range(0) == native);
    render->setAsyncDelegate(echo);
    const auto delegate = std::make_shared<LUMRenderDelegate>();
    delegate->renderDidCompleteWithURL = [](const auto&) { RunLoop::main().stop(); };
    delegate->renderDidFailedWithError = [&](const NSError& error) {
      state.SkipWithError(error.localizedDescription().c_str());
      RunLoop::main().stop();
    };
    render->setDelegate(delegate);
    render->generate();
    RunLoop::main().run();
  }
  std::filesystem::remove(output);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({1280, 720})->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMicrosecond);
}
BENCHMARK(copyFrame)->Apply(sizes);
BENCHMARK(handOverFrame)->Apply(sizes);
BENCHMARK(takeFrameBack)->Apply(sizes);
BENCHMARK(exportClip)->Arg(native)->Arg(host)->Arg(hostThatLooks)->Iterations(1)->Unit(benchmark::kSecond)->MeasureProcessCPUTime();

}  // namespace
}  // namespace vidloom
