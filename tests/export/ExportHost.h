// Hosts and timelines for the tests of exporters.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"
#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"
#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {

inline constexpr uint64_t kTimeoutNs = 60'000'000'000;

inline bool runUntil(const std::function<bool()>& predicate) { return RunLoop::main().runUntil(predicate, kTimeoutNs); }
/// For conditions whose change submits nothing to the main queue: looks again and again.
inline bool spinUntil(const std::function<bool()>& predicate) {
  return runUntil([&] {
    RunLoop::main().wake();
    return predicate();
  });
}
/// Everything that is on the main queue now.
inline void drainMainQueue() {
  while (RunLoop::main().poll()) {
  }
}

inline std::shared_ptr<AVAsset> clip(int frameCount, double soundSeconds = 0) {
  const auto sound = testing::noise(static_cast<int64_t>(soundSeconds * 48000), 7);
  return AVAsset::assetWithURL(testing::makeClip({.frameCount = frameCount, .sound = sound}));
}

inline std::shared_ptr<LUMComposition> timelineOf(const std::vector<std::shared_ptr<AVAsset>>& assets, CGSize size = {320, 180}) {
  auto composition = LUMComposition::initWithSize(size, 30);
  auto instruction = LUMInstruction::initWithId(1);
  uint64_t id = 10;
  for (const auto& asset : assets) instruction->addTracks({LUMAVAssetTrack::initWithAVAsset(asset, id++)});
  composition->addInstructions({instruction});
  return composition;
}

/// A folder of its own for one movie, so that a test sees what is left in it.
class OutputFolder {
 public:
  std::filesystem::path movie() const { return movie_; }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(movie_.parent_path()))
      names.push_back(entry.path().filename().string());
    return names;
  }

 private:
  const std::filesystem::path movie_ = testing::freshDestination();
};

/// Writes down how an export ended and what the exporter's writer said then.
struct Host {
  explicit Host(const std::shared_ptr<LUMRender>& render) : exporter(render) {
    listener->renderDidUpdateProgress = [this](double value) { percents.push_back(value); };
    listener->renderDidCompleteWithURL = [this](const auto& url) { end("completed " + url.filename().string()); };
    listener->renderDidFailedWithError = [this](const NSError& given) {
      error = given;
      end("failed");
    };
    listener->renderDidCancelRendering = [this] { end("cancelled"); };
    render->setDelegate(listener);
  }
  void end(const std::string& ending) {
    endings.push_back(ending);
    const auto render = exporter.lock();
    if (!render || !render->writer()) return;
    writerStatus = render->writer()->status();
    writerError = render->writer()->error();
  }
  /// Until the export has ended and its parts are gone.
  bool waitForEnd() {
    return runUntil([this] {
      const auto render = exporter.lock();
      return !endings.empty() && (!render || !render->serial_queue());
    });
  }

  std::weak_ptr<LUMRender> exporter;
  std::shared_ptr<LUMRenderDelegate> listener = std::make_shared<LUMRenderDelegate>();
  std::vector<double> percents;
  std::vector<std::string> endings;
  NSError error;
  AVAssetWriterStatus writerStatus = AVAssetWriterStatusUnknown;
  std::optional<NSError> writerError;
};

/// Finishes every request with the source frame of its last track, at once or from other threads; or with an error, or never.
class SourceFrameDrawer : public LUMAVAsyncDrawDelegate {
 public:
  enum class Answer { frame, frameLater, frameOnMain, twice, error, never };
  explicit SourceFrameDrawer(Answer answer) : answer_(answer) {}
  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>&) override {
    if (answer_ == Answer::error)
      return request->finishWithError(NSError("Host", 5, {{NSLocalizedDescriptionKey, std::string("no paint")}}));
    if (answer_ == Answer::never) {
      const std::lock_guard lock(mutex_);
      held_.push_back(request);
      return;
    }
    const auto answer = [request] {
      const auto ids = request->sourceTrackIDs();
      CVPixelBufferRef frame = ids.empty() ? nullptr : request->sourceFrameByTrackID(ids.back());
      request->finishWithComposedVideoFrame(frame ? frame : request->renderContext()->newPixelBuffer());
    };
    if (answer_ == Answer::frame) return answer();
    const auto queue = answer_ == Answer::frameOnMain ? dispatch_get_main_queue() : dispatch_get_global_queue(QOS_CLASS_DEFAULT);
    for (int i = answer_ == Answer::twice ? 0 : 1; i < 2; ++i) dispatch_async(queue, answer);
  }
  /// Answers what was held, late.
  void finishHeld() {
    std::vector<std::shared_ptr<AVAsynchronousVideoCompositionRequest>> held;
    {
      const std::lock_guard lock(mutex_);
      held.swap(held_);
    }
    for (const auto& request : held) request->finishWithComposedVideoFrame(request->renderContext()->newPixelBuffer());
  }
  size_t heldCount() const {
    const std::lock_guard lock(mutex_);
    return held_.size();
  }

 private:
  const Answer answer_;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<AVAsynchronousVideoCompositionRequest>> held_;
};

/// A host with an exporter of that timeline and a folder for its movie. Without an answer the native composition draws.
struct Export : OutputFolder {
  using Answer = std::optional<SourceFrameDrawer::Answer>;
  explicit Export(const std::shared_ptr<LUMComposition>& composition, Answer answer = std::nullopt)
      : drawer(answer ? std::make_shared<SourceFrameDrawer>(*answer) : nullptr),
        render(LUMRender::initWithComposition(composition, movie())),
        host(render) {
    render->setUseNativeComposition(!answer);
    render->setAsyncDelegate(drawer);
  }
  /// From generate() to the end.
  void run() {
    render->generate();
    EXPECT_EQ(render->setUpError(), std::nullopt);
    ASSERT_TRUE(host.waitForEnd());
  }

  std::shared_ptr<SourceFrameDrawer> drawer;
  std::shared_ptr<LUMRender> render;
  Host host;
};

inline std::vector<int> indices(int first, int count) {
  std::vector<int> all;
  for (int i = 0; i < count; ++i) all.push_back(first + i);
  return all;
}

}  // namespace vidloom
