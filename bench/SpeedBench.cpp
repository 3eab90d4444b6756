// A list of speed segments is made at every look at a track's duration: a hundred of them should take no more than 25 microseconds.
#include <benchmark/benchmark.h>

#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

void BM_SpeedSegments(benchmark::State& state) {
  const auto timescale = static_cast<CMTimeScale>(state.range(0));
  const auto track = LUMTrack::initWithId(1);
  track->updateAssetDuration(CMTimeMake(int64_t{10} * timescale, timescale));
  const auto curve = PWBezier::initWithOrigin({0, 50}, {100, 20}, {200, 40}, {300, 33});
  const auto context = LUMScaleContext::initWithBox(
      CGRectMake(0, 0, 300, 100), {LUMScalePoint::initWithX(0, 0, curve->C0()), LUMScalePoint::initWithX(1, 0, curve->C3())},
      {curve}, {});
  for (auto _ : state) benchmark::DoNotOptimize(context->generateTimesForTrack(track));
}
BENCHMARK(BM_SpeedSegments)->ArgName("timescale")->Arg(600)->Arg(30000)->Arg(44100)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vidloom
