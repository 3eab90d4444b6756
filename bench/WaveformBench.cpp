// What a waveform costs: the reduction beside the plain form with a logarithm for each sample, and whole files beside decoding
// them. The files are named by VIDLOOM_BENCH_SOUND, separated by colons. Run with --benchmark_enable_random_interleaving=true.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "vidloom/audio/LevelReducer.h"
#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/accelerate/vDSP.h"
#include "vidloom/platform/dispatch/dispatch.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidloom {
namespace {

constexpr size_t kSampleCount = 1'000'000;

std::vector<int16_t> noise() {
  std::mt19937 random(5);
  std::normal_distribution<float> amplitude(0, 3000);
  std::vector<int16_t> samples(kSampleCount);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(amplitude(random));
  return samples;
}

/// How long a sample takes.
void setPerSample(benchmark::State& state) {
  state.counters["perSample"] = benchmark::Counter(static_cast<double>(kSampleCount),
                                                   benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Reduction(benchmark::State& state) {
  const std::vector<int16_t> samples = noise();
  for (auto _ : state) {
    LevelReducer reducer(state.range(0));
    reducer.append(samples.data(), samples.size());
    benchmark::DoNotOptimize(reducer.takeLevels());
  }
  setPerSample(state);
}
BENCHMARK(BM_Reduction)->ArgName("samplesPerLevel")->Arg(4410)->Arg(100)->Arg(16)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_ReductionWithLibm(benchmark::State& state) {
  const std::vector<int16_t> samples = noise();
  const auto group = static_cast<size_t>(state.range(0));
  const float zeroReference = 32767, low = -50, high = 0;
  std::vector<float> values(samples.size()), levels(samples.size() / group), box(group, 1.0f / static_cast<float>(group));
  for (auto _ : state) {
    vDSP_vflt16(samples.data(), 1, values.data(), 1, values.size());
    vDSP_vabs(values.data(), 1, values.data(), 1, values.size());
    vDSP_vdbcon(values.data(), 1, &zeroReference, values.data(), 1, values.size(), 1);
    vDSP_vclip(values.data(), 1, &low, &high, values.data(), 1, values.size());
    vDSP_desamp(values.data(), state.range(0), box.data(), levels.data(), levels.size(), group);
    benchmark::DoNotOptimize(levels.data());
  }
  setPerSample(state);
}
BENCHMARK(BM_ReductionWithLibm)->ArgName("samplesPerLevel")->Arg(4410)->Unit(benchmark::kMicrosecond);

/// Everything that libavformat and libavcodec have to do for the first sound of a file. Returns the number of frames.
int64_t decode(const std::string& path) {
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0 || avformat_find_stream_info(format, nullptr) < 0) return 0;
  const AVCodec* codec = nullptr;
  const int stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  if (stream < 0) return 0;
  AVCodecContext* context = avcodec_alloc_context3(codec);
  avcodec_parameters_to_context(context, format->streams[stream]->codecpar);
  context->thread_count = 1;
  avcodec_open2(context, codec, nullptr);
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  int64_t frames = 0;
  for (bool isOpen = true; isOpen;) {
    isOpen = av_read_frame(format, packet) >= 0;
    if (isOpen && packet->stream_index == stream) avcodec_send_packet(context, packet);
    if (!isOpen) avcodec_send_packet(context, nullptr);
    while (avcodec_receive_frame(context, frame) >= 0) frames += frame->nb_samples;
    av_packet_unref(packet);
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&context);
  avformat_close_input(&format);
  return frames;
}

class Completion : public WaveformAnalyzerDelegate {
 public:
  void waveformAnalyzerProgressUpdate(double) override {}
  void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) override {
    valueCount_ = values.size();
    dispatch_semaphore_signal(done_);
  }
  size_t wait() {
    dispatch_semaphore_wait(done_, DISPATCH_TIME_FOREVER);
    return valueCount_;
  }

 private:
  dispatch_semaphore_t done_ = dispatch_semaphore_create(0);
  size_t valueCount_ = 0;
};

void decodeFile(benchmark::State& state, const std::string& path) {
  for (auto _ : state) benchmark::DoNotOptimize(decode(path));
}

void analyzeFile(benchmark::State& state, const std::string& path) {
  for (auto _ : state) {
    const auto analyzer = WaveformAnalyzer::initWithAudioAssetURL(path);
    if (!analyzer) return state.SkipWithError("no sound");
    const auto completion = std::make_shared<Completion>();
    analyzer->setDelegate(completion);
    analyzer->samples(1000);
    state.counters["levels"] = static_cast<double>(completion->wait());
  }
}

[[maybe_unused]] const bool kFilesAreRegistered = [] {
  const char* const list = std::getenv("VIDLOOM_BENCH_SOUND");
  std::istringstream paths(list ? list : "");
  for (std::string path; std::getline(paths, path, ':');) {
    const std::string name = std::filesystem::path(path).filename().string();
    for (const auto& [what, run] : {std::pair{"decode/", &decodeFile}, std::pair{"waveform/", &analyzeFile}}) {
      benchmark::RegisterBenchmark((what + name).c_str(), run, path)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}();

}  // namespace
}  // namespace vidloom
