// Places two clips side by side without a timeline and writes them to a movie: light_placement LEFT RIGHT OUT.mp4
#include <algorithm>
#include <cstdio>
#include <vector>

#include "vidloom/compositing/AVAVLightCompositionInstruction.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"

using namespace vidloom;

namespace {

constexpr uint64_t kFps = 30;
constexpr CGSize kSize{640, 360};

/// Into the left or right half of the output.
std::shared_ptr<LUMAVAssetTrack> openHalf(const char* path, uint64_t objectId, bool right) {
  auto track = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(path), objectId);
  const CGSize size = track->transformSize();
  if (size.width <= 0 || size.height <= 0) return nullptr;
  const CGAffineTransform half{kSize.width / 2 / size.width, 0, 0, kSize.height / size.height, right ? kSize.width / 2 : 0, 0};
  track->setTransform(CGAffineTransformConcat(track->preferredTransform(), half));
  return track;
}

/// The instruction of the light pipeline covers no time, so the frames are made by one of the platform's.
std::shared_ptr<AVMutableVideoComposition> videoCompositionOf(const AVAVLightCompositionInstruction& pipeline,
                                                              const CMTime& duration) {
  std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers;
  for (const auto& item : pipeline.composition_tracks()) {
    if (item->mediaType() != AVMediaTypeVideo) continue;
    auto layer = AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(item->track());
    for (const auto& track : item->innerTracks()) layer->setTransform(track->transform(), track->start());
    layers.push_back(std::move(layer));
  }
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  instruction->setTimeRange(CMTimeRangeMake(kCMTimeZero, duration));
  instruction->setLayerInstructions(std::move(layers));
  auto videoComposition = AVMutableVideoComposition::videoComposition();
  videoComposition->setInstructions({instruction});
  videoComposition->setRenderSize(kSize);
  videoComposition->setFrameDuration(CMTimeMake(1, kFps));
  return videoComposition;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::vector<std::shared_ptr<LUMAVAssetTrack>> tracks{openHalf(argv[1], 1, false), openHalf(argv[2], 2, true)};
  if (!tracks[0] || !tracks[1]) return 1;
  // Those that end earlier are placed first, as the library's own builders do.
  std::stable_sort(tracks.begin(), tracks.end(), [](const auto& a, const auto& b) {
    return CMTimeCompare(CMTimeAdd(a->start(), a->duration()), CMTimeAdd(b->start(), b->duration())) < 0;
  });
  const auto layout = AVMutableComposition::composition();
  const auto pipeline = AVAVLightCompositionInstruction::initFPS(kFps);
  for (const auto& track : tracks) pipeline->process(track, nullptr, layout);
  pipeline->finish();
  for (const auto& track : tracks) {
    if (const auto trackID = pipeline->pixelBufferTrackIdForTrack(track))
      std::printf("clip %d lies on track %d\n", static_cast<int>(track->objectId()), *trackID);
  }

  const auto data =
      LUMAVCompositionData::initWithVideoComposition(videoCompositionOf(*pipeline, layout->duration()), layout, nullptr);
  const auto render = LUMRender::initWithData(data, LUMComposition::initWithSize(kSize, kFps), argv[3]);
  render->setUseNativeComposition(true);
  render->setTimeRange(CMTimeRangeMake(kCMTimeZero, layout->duration()));
  const auto delegate = std::make_shared<LUMRenderDelegate>();
  int result = 1;
  delegate->renderDidCompleteWithURL = [&](const std::filesystem::path&) {
    result = render->writer()->status() == AVAssetWriterStatusCompleted ? 0 : 1;
    RunLoop::main().stop();
  };
  delegate->renderDidFailedWithError = [](const NSError& error) {
    std::printf("%s\n", error.localizedDescription().c_str());
    RunLoop::main().stop();
  };
  render->setDelegate(delegate);
  render->generate();
  if (!render->setUpError()) RunLoop::main().run();
  return result;
}
