// How the cost of building a composition grows with the number of tracks: 10,000 should cost no more than 15 times 1,000.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

enum Layout { oneAfterAnother, allAtOnce, scattered };

/// Tracks of the file named by VIDLOOM_BENCH_CLIP; without one they have no media, and only their placement is measured.
std::shared_ptr<LUMTrack> makeTrack(uint64_t id) {
  const char* clip = std::getenv("VIDLOOM_BENCH_CLIP");
  static const auto asset = clip ? AVAsset::assetWithURL(clip) : nullptr;
  if (asset) return LUMAVAssetTrack::initWithAVAsset(asset, id);
  auto track = LUMTrack::initWithId(id);
  track->updateAssetDuration(CMTimeMake(1, 1));
  return track;
}

std::shared_ptr<LUMComposition> makeTimeline(int trackCount, Layout layout) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> anywhere(0, trackCount * 30);
  std::vector<std::shared_ptr<LUMTrack>> tracks;
  for (int i = 0; i < trackCount; ++i) {
    auto track = makeTrack(static_cast<uint64_t>(i));
    const CMTime length = track->duration();
    const CMTime next = CMTimeMultiply(CMTimeAdd(length, CMTimeMake(1, 30)), i);
    track->setStart(layout == oneAfterAnother ? next
                    : layout == scattered     ? CMTimeMake(anywhere(random), 30)
                                              : CMTimeMake(i, 30000));
    tracks.push_back(std::move(track));
  }
  auto composition = LUMComposition::initWithSize({320, 180}, 30);
  auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks(tracks);
  composition->addInstructions({instruction});
  return composition;
}

void BM_Build(benchmark::State& state) {
  const auto composition = makeTimeline(static_cast<int>(state.range(0)), static_cast<Layout>(state.range(1)));
  for (auto _ : state) benchmark::DoNotOptimize(LUMAVComposition::buildNativeCompositionData(composition));
}
BENCHMARK(BM_Build)
    ->ArgNames({"tracks", "layout"})
    ->ArgsProduct({{1000, 10000}, {oneAfterAnother, allAtOnce, scattered}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vidloom
