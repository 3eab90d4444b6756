#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include "tests/export/ExportHost.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/platform/avfoundation/AVAsynchronousCIImageFilteringRequest.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"

namespace vidloom {
namespace {

TEST(ExportThroughAFilter, HandsEveryFrameOfTheTimelineToTheHandler) {
  const auto composition = timelineOf({clip(30, 1.0)});
  CVPixelBufferRef buffer;
  CVPixelBufferCreate(64, 36, kCVPixelFormatType_32BGRA, {}, &buffer);
  const auto still = LUMCVPixelBufferTrack::initWithCVPixelBuffer(buffer, 50, {kCMTimeZero, CMTimeMake(3, 2)});
  composition->addTracks({still}, 1);
  std::mutex mutex;
  std::set<double> times;
  CGRect extent;
  const auto data = LUMAVComposition::buildNativeCompositionWithCIFilterBlock(composition, [&](const auto& request) {
    {
      const std::lock_guard lock(mutex);
      times.insert(CMTimeGetSeconds(request->compositionTime()));
      if (times.size() == 1) extent = request->sourceImage()->extent();
    }
    request->finishWithImage(request->sourceImage(), nullptr);
  });
  OutputFolder folder;
  const auto render = LUMRender::initWithData(data, composition, folder.movie());
  render->setUseNativeComposition(true);
  Host host(render);
  render->generate();
  ASSERT_TRUE(host.waitForEnd());
  EXPECT_EQ(host.endings, std::vector<std::string>{"completed movie.mp4"});
  EXPECT_EQ(host.writerStatus, AVAssetWriterStatusCompleted);
  EXPECT_EQ(times.size(), 45u);
  EXPECT_EQ(extent, CGRectMake(0, 0, 320, 180));
  auto shown = testing::decodedFrameIndices(folder.movie());
  ASSERT_EQ(shown.size(), 45u) << "a still goes on behind the media";
  shown.resize(30);
  EXPECT_EQ(shown, indices(0, 30));
}

}  // namespace
}  // namespace vidloom
