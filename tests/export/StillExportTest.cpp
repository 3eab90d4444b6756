#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "hostkit/TextTrack.h"
#include "tests/export/ExportHost.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"

namespace vidloom {
namespace {

constexpr int kNothing = 7;  ///< what the host draws where there is no track

std::shared_ptr<LUMTrack> still(uint64_t id, const CMTime& start, const CMTime& duration) {
  return LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, id, {start, duration});
}
std::shared_ptr<LUMTrack> title(const CMTime& start, const CMTime& duration) {
  std::string problem;
  return TextTrack::initWithText("Title", {}, 500, {start, duration}, problem);
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
  composition->addInstructions({LUMInstruction::initWithId(1)});
  composition->addTracks(tracks, 1);
  Export movie(composition);
  const auto drawer = std::make_shared<LastTrackDrawer>(tracks);
  movie.render->setUseNativeComposition(native);
  movie.render->setAsyncDelegate(drawer);
  movie.run();
  EXPECT_EQ(movie.host.writerStatus, AVAssetWriterStatusCompleted);
  return testing::decodedFrameIndices(movie.movie());
}

std::vector<int> frames(const std::vector<std::pair<int, size_t>>& runs) {
  std::vector<int> all;
  for (const auto& [index, count] : runs) all.insert(all.end(), count, index);
  return all;
}

TEST(ExportOfStills, ShowsEachFromItsStartToTheFrameBeforeItsEnd) {
  auto mediaAndTitle = indices(0, 30);
  mediaAndTitle.resize(150, 500);
  const struct {
    const char* what;
    std::vector<std::shared_ptr<LUMTrack>> tracks;
    uint64_t fps;
    std::vector<int> shown;
  } rows[] = {
      {"a title over media that ends before it",
       {LUMAVAssetTrack::initWithAVAsset(clip(60), 10), title(seconds(1), seconds(4))},
       30,
       mediaAndTitle},
      {"a title alone, longer than the blank clip", {title(kCMTimeZero, seconds(5, 2))}, 30, frames({{500, 75}})},
      {"one after the other",
       {still(501, kCMTimeZero, seconds(1)), still(502, seconds(1), seconds(3))},
       25,
       frames({{501, 25}, {502, 75}})},
      {"for one frame", {still(501, kCMTimeZero, seconds(1, 60))}, 60, frames({{501, 1}})},
      {"to a time between frames", {still(501, kCMTimeZero, seconds(101, 100))}, 30, frames({{501, 31}})},
      {"from and to times between frames",
       {still(501, seconds(51, 100), seconds(1)), still(502, seconds(2), seconds(1, 3))},
       15,
       frames({{kNothing, 8}, {501, 15}, {kNothing, 7}, {502, 5}})},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(exported(row.tracks, row.fps, false), row.shown) << row.what;
    EXPECT_EQ(exported(row.tracks, row.fps, true).size(), row.shown.size()) << row.what << ", native";
  }
}

}  // namespace
}  // namespace vidloom
