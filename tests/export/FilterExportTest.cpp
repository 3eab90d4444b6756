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
  const auto still = LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, 50, {kCMTimeZero, CMTimeMake(3, 2)});
  composition->addTracks({still}, 1);
  std::mutex mutex;
  std::set<double> times;
  const auto data = LUMAVComposition::buildNativeCompositionWithCIFilterBlock(composition, [&](const auto& request) {
    {
      const std::lock_guard lock(mutex);
      times.insert(CMTimeGetSeconds(request->compositionTime()));
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
  auto shown = testing::decodedFrameIndices(folder.movie());
  ASSERT_EQ(shown.size(), 45u) << "a still goes on behind the media";
  shown.resize(30);
  EXPECT_EQ(shown, indices(0, 30));
}

}  // namespace
}  // namespace vidloom
