#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/export/ExportHost.h"
#include "vidloom/timeline/LUMAVTextAttributeTrack.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"

namespace vidloom {
namespace {

constexpr int kNothing = 7;  ///< what the host draws where there is no track

class Title : public LUMAVTextAttributeTrack {
 public:
  static std::shared_ptr<Title> at(uint64_t id, const CMTime& start, const CMTime& duration) {
    struct Concrete : Title {};
    auto title = std::make_shared<Concrete>();
    title->prepareWithId(id);
    title->setStart(start);
    title->updateAssetDuration(duration);
    return title;
  }
  bool isContentStatic() const override { return true; }

 protected:
  Title() = default;
};

std::shared_ptr<LUMTrack> still(uint64_t id, const CMTime& start, const CMTime& duration) {
  CVPixelBufferRef buffer;
  CVPixelBufferCreate(64, 36, kCVPixelFormatType_32BGRA, {}, &buffer);
  return LUMCVPixelBufferTrack::initWithCVPixelBuffer(buffer, id, {start, duration});
}

CMTime seconds(int64_t value, int32_t timescale = 1) { return CMTimeMake(value, timescale); }

/// Shows the last track that is visible: media as it is, stills and titles as a frame that carries their id.
class LastTrackDrawer : public LUMAVAsyncDrawDelegate {
 public:
  explicit LastTrackDrawer(std::vector<std::shared_ptr<LUMTrack>> tracks) : tracks_(std::move(tracks)) {}
  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>& pipeline) override {
    std::shared_ptr<LUMTrack> shown;
    for (const auto& track : tracks_) {
      if (CMTimeRangeContainsTime({track->start(), track->duration()}, request->compositionTime())) shown = track;
    }
    if (shown && shown->dynamicAsset()) {
      request->finishWithComposedVideoFrame(request->sourceFrameByTrackID(*pipeline->pixelBufferTrackIdForTrack(shown)));
    } else {
      request->finishWithComposedVideoFrame(frame(*request, shown ? static_cast<int>(shown->objectId()) : kNothing));
    }
  }

 private:
  static CVPixelBufferRef frame(const AVAsynchronousVideoCompositionRequest& request, int index) {
    const CVPixelBufferRef buffer = request.renderContext()->newPixelBuffer();
    CVPixelBufferLockBaseAddress(buffer, 0);
    const size_t stride = CVPixelBufferGetBytesPerRowOfPlane(buffer, 0);
    const size_t width = CVPixelBufferGetWidth(buffer), height = CVPixelBufferGetHeight(buffer);
    testing::drawFrameIndex(index, static_cast<int>(width), static_cast<int>(height),
                            static_cast<uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer, 0)), static_cast<ptrdiff_t>(stride));
    std::memset(CVPixelBufferGetBaseAddressOfPlane(buffer, 1), 128, CVPixelBufferGetBytesPerRowOfPlane(buffer, 1) * height / 2);
    CVPixelBufferUnlockBaseAddress(buffer, 0);
    return buffer;
  }

  std::vector<std::shared_ptr<LUMTrack>> tracks_;
};

std::vector<int> exported(const std::vector<std::shared_ptr<LUMTrack>>& tracks, uint64_t fps, bool native) {
  const auto composition = LUMComposition::initWithSize({320, 180}, fps);
  const auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks(tracks);
  composition->addInstructions({instruction});
  OutputFolder folder;
  const auto render = LUMRender::initWithComposition(composition, folder.movie());
  const auto drawer = std::make_shared<LastTrackDrawer>(tracks);
  render->setUseNativeComposition(native);
  render->setAsyncDelegate(drawer);
  Host host(render);
  render->generate();
  EXPECT_EQ(render->setUpError(), std::nullopt);
  EXPECT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCompleted);
  return testing::decodedFrameIndices(folder.movie());
}

std::vector<int> frames(const std::vector<std::pair<int, size_t>>& runs) {
  std::vector<int> all;
  for (const auto& [index, count] : runs) all.insert(all.end(), count, index);
  return all;
}

TEST(ExportOfStills, ShowsEachFromItsStartToTheFrameBeforeItsEnd) {
  const struct {
    const char* what;
    std::vector<std::shared_ptr<LUMTrack>> tracks;
    uint64_t fps;
    std::vector<int> shown;
  } rows[] = {
      {"a title alone, longer than the blank clip", {Title::at(500, kCMTimeZero, seconds(5, 2))}, 30, frames({{500, 75}})},
      {"a still alone, shorter", {still(501, kCMTimeZero, seconds(1))}, 25, frames({{501, 25}})},
      {"for one frame", {still(501, kCMTimeZero, seconds(1, 60))}, 60, frames({{501, 1}})},
      {"to a time between frames", {still(501, kCMTimeZero, seconds(101, 100))}, 30, frames({{501, 31}})},
      {"from and to times between frames",
       {still(501, seconds(51, 100), seconds(1)), still(502, seconds(2), seconds(1, 3))},
       15,
       frames({{kNothing, 8}, {501, 15}, {kNothing, 7}, {502, 5}})},
      {"one after the other",
       {still(501, kCMTimeZero, seconds(1)), still(502, seconds(1), seconds(3))},
       15,
       frames({{501, 15}, {502, 45}})},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(exported(row.tracks, row.fps, false), row.shown) << row.what;
    EXPECT_EQ(exported(row.tracks, row.fps, true).size(), row.shown.size()) << row.what << ", native";
  }
}

TEST(ExportOfStills, ATitleGoesOnWhereTheMediaHasEnded) {
  const auto media = LUMAVAssetTrack::initWithAVAsset(clip(60), 10);
  auto shown = indices(0, 30);
  shown.resize(150, 500);
  EXPECT_EQ(exported({media, Title::at(500, seconds(1), seconds(4))}, 30, false), shown);
  const auto native = exported({media, Title::at(500, seconds(1), seconds(4))}, 30, true);
  EXPECT_EQ(native.size(), 150u);
  EXPECT_EQ(std::vector<int>(native.begin(), native.begin() + 60), indices(0, 60));
}

}  // namespace
}  // namespace vidloom
