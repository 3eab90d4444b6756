#include "tools/SpectrumRun.h"

#include <algorithm>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "hostkit/SpectrumPicture.h"
#include "tools/Console.h"
#include "tools/DataOutput.h"
#include "tools/SoundAnalysis.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr int64_t kUsualBands = 64;

ExitCode failWith(ExitCode code, const std::string& message) {
  Console::message(message);
  return code;
}

TempiFFTWindowType windowTypeOf(const std::string& name) {
  if (name == "hanning") return TempiFFTWindowType::hanning;
  return name == "hamming" ? TempiFFTWindowType::hamming : TempiFFTWindowType::none;
}

/// The bins that the bands are made of: from `lower` to below `upper`, as the analyser counts them, or that one.
struct BinRange {
  int64_t lower = 0, upper = 0;
  int64_t count() const { return std::max<int64_t>(1, upper - lower); }
};

BinRange binsOf(const SpectrumOptions& options, float sampleRate) {
  const float nyquist = sampleRate * 0.5f;
  const int64_t binCount = options.size / 2;
  const auto binAt = [&](float frequency) { return static_cast<int64_t>(static_cast<float>(binCount) * frequency / nyquist); };
  return {binAt(options.minFrequency), binAt(std::min(options.maxFrequency, nyquist))};
}

/// What spectra with these options look like, found out on silence.
std::shared_ptr<TempiFFT> exampleOf(const WaveformFFTSetting& setting, float sampleRate) {
  auto fft = TempiFFT::init(setting.size, sampleRate);
  fft->setWindowType(setting.windowType);
  fft->forward(std::vector<float>(static_cast<size_t>(setting.size)));
  fft->linearBands(setting.minFrequency, setting.maxFrequency, setting.numberOfBands);
  return fft;
}

double fullScaleSinePower(const TempiFFT& fft) {
  double sum = fft.window().empty() ? static_cast<double>(fft.size()) : 0;
  for (const float value : fft.window()) sum += value;
  return sum * sum;
}

class SpectrumRun {
 public:
  SpectrumRun(const SpectrumOptions& options, std::shared_ptr<WaveformAnalyzer> analyzer, const SoundTrack& track)
      : options_(options), analyzer_(std::move(analyzer)), track_(track), rate_(static_cast<float>(track.sampleRate)) {
    setting_.size = options.size;
    setting_.hop = options.hop;
    setting_.windowType = windowTypeOf(options.window);
    setting_.numberOfBands = options.bands.value_or(kUsualBands);
    setting_.minFrequency = options.minFrequency;
    setting_.maxFrequency = options.maxFrequency;
  }

  ExitCode run() { return isPicture() ? runPicture() : runJson(); }

 private:
  /// In pictures, unless bands were asked for.
  bool drawsBins() const { return isPicture() && !options_.bands; }
  bool isPicture() const { return options_.output.extension() == ".png"; }

  /// Blocks may still come when the analysis was given up; they find it closed.
  template <class Target>
  struct Gate {
    explicit Gate(const auto& made) : target(made) {}
    std::mutex mutex;
    Target target;
    bool isClosed = false;
  };

  struct BlockFile {
    explicit BlockFile(const std::filesystem::path& path) : output(path) {}
    DataOutput output;
    int64_t blockCount = 0;
  };

  ExitCode runJson() {
    const auto gate = std::make_shared<Gate<BlockFile>>(options_.output);
    DataOutput& output = gate->target.output;
    writeHead(output, *exampleOf(setting_, rate_));
    setting_.eachBlock = [gate](const TempiFFT& fft, double) {
      const std::lock_guard lock(gate->mutex);
      if (gate->isClosed || gate->target.output.hasFailed()) return;
      writeBlock(gate->target.output, fft, gate->target.blockCount++ == 0);
    };
    const AnalysedSound sound = analyse(
        std::move(analyzer_), [this](WaveformAnalyzer& analyzer) { analyzer.samples(1, setting_); },
        [&output] { return !output.hasFailed(); });
    const std::lock_guard lock(gate->mutex);
    gate->isClosed = true;
    if (sound.code != ExitCode::done) return sound.code;
    writeTail(output, gate->target.blockCount);
    return output.finish();
  }

  void writeHead(DataOutput& output, const TempiFFT& example) const {
    output.write("{\"sampleRate\":");
    output.write(track_.sampleRate);
    output.write(",\"channels\":");
    output.write(track_.channels);
    output.write(",\"size\":");
    output.write(setting_.size);
    output.write(",\"hop\":");
    output.write(setting_.hop);
    output.write(R"(,"window":")" + options_.window + R"(","fullScaleSinePower":)");
    output.write(fullScaleSinePower(example));
    output.write(",\"frequencies\":");
    writeList(output, *example.bandFrequencies());
    output.write(",\n\"magnitudes\":[");
  }

  static void writeBlock(DataOutput& output, const TempiFFT& fft, bool isFirst) {
    output.write(isFirst ? "\n" : ",\n");
    writeList(output, *fft.bandMagnitudes());
  }

  /// The times come last: only now their number is known.
  void writeTail(DataOutput& output, int64_t blockCount) const {
    output.write("],\n\"times\":[");
    for (int64_t block = 0; block < blockCount && !output.hasFailed(); ++block) {
      if (block > 0) output.write(",");
      output.write(static_cast<double>(block) * static_cast<double>(setting_.hop) / rate_);
    }
    output.write("]}\n");
  }

  static void writeList(DataOutput& output, const std::vector<float>& numbers) {
    const char* separator = "[";
    for (const float number : numbers) {
      output.write(separator);
      output.write(number);
      separator = ",";
    }
    output.write("]");
  }

  ExitCode runPicture() {
    const auto gate = std::make_shared<Gate<SpectrumPicture>>(pictureSetup());
    const double half = static_cast<double>(setting_.size) / 2 / rate_ + track_.startSeconds;
    if (drawsBins()) setting_.numberOfBands = 1;
    setting_.eachBlock = [gate, half, drawsBins = drawsBins(), bins = binsOf(options_, rate_)](const TempiFFT& fft,
                                                                                               double startSeconds) {
      const std::lock_guard lock(gate->mutex);
      if (gate->isClosed) return;
      const std::span powers(drawsBins ? fft.magnitudes() : *fft.bandMagnitudes());
      gate->target.add(drawsBins ? powers.subspan(static_cast<size_t>(bins.lower), static_cast<size_t>(bins.count())) : powers,
                       startSeconds + half);
    };
    const AnalysedSound sound =
        analyse(std::move(analyzer_), [this](WaveformAnalyzer& analyzer) { analyzer.samples(1, setting_); });
    const std::lock_guard lock(gate->mutex);
    gate->isClosed = true;
    if (sound.code != ExitCode::done) return sound.code;
    return writePicture(gate->target.picture(), options_.output);
  }

  SpectrumPicture::Setup pictureSetup() const {
    SpectrumPicture::Setup setup;
    setup.title = options_.media.filename().string();
    setup.description = track_.text() + (track_.channels > 1 ? " averaged; " : "; ") +
                        NSStringWithFormat("blocks of %lld samples every %lld, window: %s", static_cast<long long>(setting_.size),
                                           static_cast<long long>(setting_.hop), options_.window.c_str());
    setup.soundStartSeconds = track_.startSeconds;
    setup.soundEndSeconds = track_.endSeconds;
    setup.endSeconds = track_.fileEndSeconds;
    setup.hopSeconds = static_cast<double>(setting_.hop) / rate_;
    setup.minFrequency = setting_.minFrequency;
    setup.maxFrequency = std::min(setting_.maxFrequency, rate_ * 0.5f);
    setup.bandEdges = bandEdges();
    setup.fullScaleSinePower = fullScaleSinePower(*exampleOf(setting_, rate_));
    return setup;
  }

  /// A bin stands for the frequencies around its own, half a bin's width to both sides.
  std::vector<double> bandEdges() const {
    const BinRange bins = binsOf(options_, rate_);
    const double binWidth = static_cast<double>(rate_) / static_cast<double>(setting_.size);
    const int64_t bandCount = drawsBins() ? bins.count() : setting_.numberOfBands;
    const double binsPerBand = static_cast<double>(bins.count()) / static_cast<double>(bandCount);
    std::vector<double> edges;
    for (int64_t i = 0; i <= bandCount; ++i) {
      edges.push_back((static_cast<double>(bins.lower) + static_cast<double>(i) * binsPerBand - 0.5) * binWidth);
    }
    return edges;
  }

  const SpectrumOptions& options_;
  std::shared_ptr<WaveformAnalyzer> analyzer_;
  const SoundTrack& track_;
  const float rate_;
  WaveformFFTSetting setting_;
};

/// Why there are no bins to be had; empty where there are.
std::string problemWithFrequencies(const SpectrumOptions& options, float sampleRate) {
  const float nyquist = sampleRate * 0.5f;
  if (options.minFrequency < nyquist && binsOf(options, sampleRate).lower < options.size / 2) return "";
  return NSStringWithFormat("%s: has %g Hz, so nothing above %g Hz: --min is %g", options.media.string().c_str(), sampleRate,
                            nyquist, options.minFrequency);
}

}  // namespace

ExitCode runSpectrum(const SpectrumOptions& options) {
  std::optional<NSError> error;
  auto analyzer = WaveformAnalyzer::initWithAudioAssetURL(options.media, &error);
  if (!analyzer) return failWith(ExitCode::input, textOf(*error, options.media));
  const auto track = soundTrackOf(*analyzer->assetReader()->asset(), *analyzer->audioAssetTrack());
  if (!track) return failWith(ExitCode::input, options.media.string() + ": the sound cannot be read");
  std::string problem = problemWithFrequencies(options, static_cast<float>(track->sampleRate));
  if (!problem.empty()) return failWith(ExitCode::input, problem);
  problem = problemWithDerivedFile(options.output, options.media);
  if (!problem.empty()) return failWith(ExitCode::output, problem);
  return SpectrumRun(options, std::move(analyzer), *track).run();
}

}  // namespace vidloom
