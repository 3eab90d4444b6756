// A frame server over fake media, with or without a custom compositor.
#pragma once

#include <gtest/gtest.h>

#include "tests/platform/reading/ReadingTesting.h"
#include "vidloom/platform/dispatch/DispatchClock.h"

namespace vidloom {

using testing::DecoderLog;
using testing::emptySegment;
using testing::FakeFile;
using testing::FakeTrack;
using testing::PlainInstruction;
using testing::RequestRef;
using testing::ScriptedCompositor;
using testing::seconds;
using testing::segment;
using testing::serveAll;
using testing::ServedFrames;

inline std::vector<int> numbers(int first, int end) {
  std::vector<int> all;
  for (int i = first; i < end; ++i) all.push_back(i);
  return all;
}

class FrameServerFixture : public ::testing::Test {
 protected:
  FrameServerFixture() {
    composition->setRenderSize({64, 36});
    composition->setFrameDuration(CMTimeMake(1, 30));
    setup.pixelFormat = kCVPixelFormatType_32BGRA;
    setup.opener = testing::fakeVideoOpener(log);
    setup.range = {kCMTimeZero, seconds(1)};
  }
  ~FrameServerFixture() override {
    if (compositor) compositor->close();
    DispatchClock::setCurrent(nullptr);
  }

  CMPersistentTrackID addTrack(std::vector<MediaSegment> segments) {
    const auto id = static_cast<CMPersistentTrackID>(setup.videoTracks.size() + 1);
    setup.videoTracks.push_back(std::make_shared<FakeTrack>(id, AVMediaTypeVideo, std::move(segments)));
    return id;
  }
  CMPersistentTrackID addFilm(int64_t lengthSeconds = 10) {
    return addTrack({segment(film, kCMTimeZero, seconds(lengthSeconds), kCMTimeZero)});
  }
  static std::shared_ptr<AVMutableVideoCompositionLayerInstruction> layer(CMPersistentTrackID trackID) {
    auto layer = AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(nullptr);
    layer->setTrackID(trackID);
    return layer;
  }
  void show(CMTimeRange range, std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers) {
    const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
    instruction->setTimeRange(range);
    instruction->setLayerInstructions(std::move(layers));
    addInstruction(instruction);
  }
  void addInstruction(std::shared_ptr<AVVideoCompositionInstruction> instruction) {
    auto instructions = composition->instructions();
    instructions.push_back(std::move(instruction));
    composition->setInstructions(std::move(instructions));
  }
  void useCompositor(std::function<void(const RequestRef&)> script) {
    if (compositor) compositor->close();
    compositor = std::make_shared<ScriptedCompositor>(std::move(script));
    composition->setCustomVideoCompositorClass(testing::scriptedClass());
  }
  /// A server for the custom compositor over one track and one instruction.
  std::shared_ptr<FrameServer> hostedServer(std::function<void(const RequestRef&)> script) {
    addFilm();
    addInstruction(std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(10)}));
    useCompositor(std::move(script));
    return server();
  }
  std::shared_ptr<FrameServer> server() {
    setup.composition = composition->copy();  // as outputs do: what was made before may still be read
    setup.compositor = compositor;
    std::optional<NSError> error;
    auto made = FrameServer::make(setup, &error);
    EXPECT_TRUE(made) << error.value_or(NSError{});
    return made;
  }
  static void echo(const RequestRef& request) {
    request->finishWithComposedVideoFrame(request->sourceFrameByTrackID(request->sourceTrackIDs().front()));
  }

  const std::shared_ptr<DecoderLog> log = std::make_shared<DecoderLog>();
  const std::shared_ptr<FakeFile> film = FakeFile::steadyVideo("film", 30, 1, 300);
  const std::shared_ptr<AVMutableVideoComposition> composition = AVMutableVideoComposition::videoComposition();
  const std::shared_ptr<HandDrivenClock> clock = HandDrivenClock::make();
  // What the compositor's functions keep: they may still run when a test ends.
  std::mutex mutex;
  std::vector<RequestRef> held;
  int count = 0;
  std::shared_ptr<ScriptedCompositor> compositor;
  FrameServer::Setup setup;
};

}  // namespace vidloom
