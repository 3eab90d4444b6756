// The picture kernels beside memcpy and swscale's bilinear scaler.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PixelConversion.h"
#include "vidloom/platform/pixels/PlaneView.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace vidloom {
namespace {

const PictureColor kLimited;
const PictureColor kFull{ColorMatrix::bt709, true};
const PictureColor kLimited601{ColorMatrix::bt601, false, "smpte170m", "smpte170m", "smpte170m"};

/// Sums of waves and a little noise, much as a camera sees it.
PictureRef makeContent(int width, int height, const PictureColor& color = kLimited, bool alpha = false) {
  auto picture = PicturePool::shared().make(width, height, color, alpha);
  std::minstd_rand random(static_cast<unsigned>(width));
  for (int plane = 0; plane < (alpha ? 4 : 3); ++plane) {
    const MutablePlaneView view = planeOf(*picture, plane);
    for (int y = 0; y < view.height; ++y) {
      for (int x = 0; x < view.width; ++x) {
        const double wave = 128 + 60 * std::sin(0.013 * x + plane) * std::cos(0.017 * y) + 30 * std::sin(0.11 * (x + y));
        view.row(y)[x] = static_cast<uint8_t>(wave + static_cast<int>(random() % 13) - 6);
      }
    }
  }
  return picture;
}

struct Biplanar {
  Biplanar(int width, int height) : stride((width + 63) / 64 * 64), bytes(static_cast<size_t>(stride) * height * 3 / 2) {
    planes = {bytes.data(), stride, bytes.data() + stride * height, stride};
  }
  ptrdiff_t stride;
  std::vector<uint8_t> bytes;
  BiplanarPlanes planes;
};

struct ScalerDeleter {
  void operator()(SwsContext* context) const { sws_freeContext(context); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerDeleter>;

/// swscale set up before it is initialised, as it has to be where ranges differ.
Scaler makeScaler(int width, int height, AVPixelFormat from, bool fromFull, int toWidth, int toHeight, AVPixelFormat to,
                  bool toFull, int flags = SWS_BILINEAR) {
  Scaler scaler(sws_alloc_context());
  av_opt_set_int(scaler.get(), "srcw", width, 0);
  av_opt_set_int(scaler.get(), "srch", height, 0);
  av_opt_set_int(scaler.get(), "src_format", from, 0);
  av_opt_set_int(scaler.get(), "src_range", fromFull, 0);
  av_opt_set_int(scaler.get(), "dstw", toWidth, 0);
  av_opt_set_int(scaler.get(), "dsth", toHeight, 0);
  av_opt_set_int(scaler.get(), "dst_format", to, 0);
  av_opt_set_int(scaler.get(), "dst_range", toFull, 0);
  av_opt_set_int(scaler.get(), "sws_flags", flags, 0);
  const int* matrix = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(scaler.get(), matrix, fromFull, matrix, toFull, 0, 1 << 16, 1 << 16);
  if (sws_init_context(scaler.get(), nullptr, nullptr) < 0) scaler.reset();
  return scaler;
}

void runScaler(benchmark::State& state, SwsContext* scaler, const Picture& source, uint8_t* const* planes, const int* strides) {
  const uint8_t* from[] = {source.y.data, source.cb.data, source.cr.data, nullptr};
  const int fromStrides[] = {static_cast<int>(source.y.stride), static_cast<int>(source.cb.stride),
                             static_cast<int>(source.cr.stride), 0};
  for (auto _ : state) {
    sws_scale(scaler, from, fromStrides, 0, source.height, planes, strides);
    benchmark::ClobberMemory();
  }
}

void memcpyFrame(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const PictureRef source = makeContent(width, height);
  Biplanar target(width, height);
  for (auto _ : state) {
    for (int y = 0; y < height; ++y) std::memcpy(target.planes.y + y * target.stride, planeOf(*source, 0).row(y), size_t(width));
    for (int y = 0; y < height / 2; ++y) {
      uint8_t* row = target.planes.cbcr + y * target.stride;
      std::memcpy(row, planeOf(*source, 1).row(y), static_cast<size_t>(width / 2));
      std::memcpy(row + width / 2, planeOf(*source, 2).row(y), static_cast<size_t>(width / 2));
    }
    benchmark::ClobberMemory();
  }
}

void toFullBiplanar(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const PictureRef source = makeContent(width, height);
  Biplanar target(width, height);
  for (auto _ : state) {
    writeBiplanar(*source, ColorMatrix::bt709, true, target.planes);
    benchmark::ClobberMemory();
  }
}

void fromFullBiplanar(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  Biplanar source(width, height);
  writeBiplanar(*makeContent(width, height), ColorMatrix::bt709, true, source.planes);
  const auto target = PicturePool::shared().make(width, height, kLimited, false);
  for (auto _ : state) {
    readBiplanar(source.planes, ColorMatrix::bt709, true, *target);
    benchmark::ClobberMemory();
  }
}

void swscaleToFullBiplanar(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const PictureRef source = makeContent(width, height);
  Biplanar target(width, height);
  const Scaler scaler = makeScaler(width, height, AV_PIX_FMT_YUV420P, false, width, height, AV_PIX_FMT_NV12, true);
  uint8_t* planes[] = {target.planes.y, target.planes.cbcr, nullptr, nullptr};
  const int strides[] = {static_cast<int>(target.stride), static_cast<int>(target.stride), 0, 0};
  runScaler(state, scaler.get(), *source, planes, strides);
}

void matrixConversion(benchmark::State& state) {
  const PictureRef source = makeContent(1920, 1080, kLimited601);
  const auto target = PicturePool::shared().make(1920, 1080, kLimited, false);
  for (auto _ : state) {
    convertColor(*source, *target);
    benchmark::ClobberMemory();
  }
}

void fromBGRA(benchmark::State& state) {
  std::vector<uint8_t> pixels(4 * 1920 * 1080);
  writeBGRA(*makeContent(1920, 1080), AlphaMode::ignored, pixels.data(), 4 * 1920);
  Biplanar target(1920, 1080);
  for (auto _ : state) {
    convertBGRAToBiplanar(pixels.data(), 4 * 1920, 1920, 1080, ColorMatrix::bt709, true, target.planes);
    benchmark::ClobberMemory();
  }
}

void toBGRA(benchmark::State& state) {
  const PictureRef source = makeContent(1920, 1080);
  std::vector<uint8_t> pixels(4 * 1920 * 1080);
  for (auto _ : state) {
    writeBGRA(*source, AlphaMode::ignored, pixels.data(), 4 * 1920);
    benchmark::ClobberMemory();
  }
}

void swscaleToBGRA(benchmark::State& state) {
  const PictureRef source = makeContent(1920, 1080);
  std::vector<uint8_t> pixels(4 * 1920 * 1080);
  const Scaler scaler = makeScaler(1920, 1080, AV_PIX_FMT_YUV420P, false, 1920, 1080, AV_PIX_FMT_BGRA, true);
  uint8_t* planes[] = {pixels.data(), nullptr, nullptr, nullptr};
  const int strides[] = {4 * 1920, 0, 0, 0};
  runScaler(state, scaler.get(), *source, planes, strides);
}

/// With a layer out of sight that moves each time, so that nothing is remembered.
void composeLayers(benchmark::State& state, std::vector<PictureLayer> layers, int width, int height) {
  LayerCompositor compositor;
  layers.insert(layers.begin(), PictureLayer{layers[0].picture, {1, 1}, {1, 0, 0, 1, 0, 1e6}, 1});
  for (auto _ : state) {
    layers[0].transform.tx += 1;
    benchmark::DoNotOptimize(compositor.compose(layers, width, height, kLimited));
  }
}

void scaleTo(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const int toWidth = static_cast<int>(state.range(2)), toHeight = static_cast<int>(state.range(3));
  composeLayers(state, {{makeContent(width, height), {double(toWidth), double(toHeight)}, CGAffineTransformIdentity, 1}}, toWidth,
                toHeight);
}

void swscaleTo(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const int toWidth = static_cast<int>(state.range(2)), toHeight = static_cast<int>(state.range(3));
  const PictureRef source = makeContent(width, height);
  const auto target = PicturePool::shared().make(toWidth, toHeight, kLimited, false);
  const Scaler scaler = makeScaler(width, height, AV_PIX_FMT_YUV420P, false, toWidth, toHeight, AV_PIX_FMT_YUV420P, false);
  uint8_t* planes[] = {target->mutableY(), target->mutableCb(), target->mutableCr(), nullptr};
  const int strides[] = {static_cast<int>(target->y.stride), static_cast<int>(target->cb.stride),
                         static_cast<int>(target->cr.stride), 0};
  runScaler(state, scaler.get(), *source, planes, strides);
}

void quarterTurn(benchmark::State& state) {
  composeLayers(state, {{makeContent(1920, 1080), {1920, 1080}, {0, 1, -1, 0, 1080, 0}, 1}}, 1080, 1920);
}

void affine(benchmark::State& state) {
  const double angle = static_cast<double>(state.range(0)) * std::numbers::pi / 180, scale = 1.3;
  const double a = scale * std::cos(angle), b = scale * std::sin(angle);
  const CGAffineTransform about{a, b, -b, a, 960 - 960 * a + 540 * b, 540 - 960 * b - 540 * a};
  composeLayers(state, {{makeContent(1920, 1080), {1920, 1080}, about, 1}}, 1920, 1080);
}

void opacityBlend(benchmark::State& state) {
  const PictureRef below = makeContent(1920, 1080), above = makeContent(1920, 1080);
  composeLayers(state, {{below, {1920, 1080}, CGAffineTransformIdentity, 1}, {above, {1920, 1080}, CGAffineTransformIdentity, 0.5}},
                1920, 1080);
}

void pictureInPicture(benchmark::State& state) {
  const PictureRef below = makeContent(1920, 1080), above = makeContent(1920, 1080);
  composeLayers(
      state,
      {{below, {1920, 1080}, CGAffineTransformIdentity, 1}, {above, {1920, 1080}, {1 / 3.0, 0, 0, 1 / 3.0, 1200.5, 60}, 0.8}}, 1920,
      1080);
}

void alphaOverlay(benchmark::State& state) {
  const PictureRef below = makeContent(1920, 1080), above = makeContent(960, 540, kLimited, true);
  composeLayers(state, {{below, {1920, 1080}, CGAffineTransformIdentity, 1}, {above, {960, 540}, {1, 0, 0, 1, 100, 100}, 1}}, 1920,
                1080);
}

BENCHMARK(memcpyFrame)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMicrosecond);
BENCHMARK(toFullBiplanar)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMicrosecond);
BENCHMARK(fromFullBiplanar)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMicrosecond);
BENCHMARK(swscaleToFullBiplanar)->Args({1920, 1080})->Unit(benchmark::kMicrosecond);
BENCHMARK(matrixConversion)->Unit(benchmark::kMicrosecond);
BENCHMARK(fromBGRA)->Unit(benchmark::kMicrosecond);
BENCHMARK(toBGRA)->Unit(benchmark::kMicrosecond);
BENCHMARK(swscaleToBGRA)->Unit(benchmark::kMicrosecond);
void scaleArguments(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({3840, 2160, 1920, 1080})
      ->Args({1920, 1080, 1440, 810})
      ->Args({1920, 1080, 640, 360})
      ->Args({1280, 720, 1920, 1080})
      ->Args({960, 540, 1920, 1080})
      ->Args({3840, 2160, 1280, 720})
      ->Args({1920, 1080, 960, 540})
      ->Unit(benchmark::kMicrosecond);
}
BENCHMARK(scaleTo)->Apply(scaleArguments);
BENCHMARK(swscaleTo)->Apply(scaleArguments);
BENCHMARK(quarterTurn)->Unit(benchmark::kMicrosecond);
BENCHMARK(affine)->Arg(3)->Arg(45)->Arg(80)->Unit(benchmark::kMicrosecond);
BENCHMARK(opacityBlend)->Unit(benchmark::kMicrosecond);
BENCHMARK(pictureInPicture)->Unit(benchmark::kMicrosecond);
BENCHMARK(alphaOverlay)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vidloom
