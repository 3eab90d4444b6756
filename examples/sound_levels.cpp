// Prints the waveform of a media file as bars, with the strongest frequency of each second: sound_levels FILE
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/dispatch/RunLoop.h"

using namespace vidloom;

namespace {

/// All of it is called on a queue of the library.
class Host : public WaveformAnalyzerDelegate {
 public:
  void waveformAnalyzerProgressUpdate(double) override {}
  void waveformAnalyzerFailed(const NSError& error) override { std::printf("%s\n", error.localizedDescription().c_str()); }
  void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) override {
    for (const float value : values) std::printf("%6.1f dB %s\n", -50 * value, std::string(size_t((1 - value) * 50), '#').c_str());
    succeeded = !values.empty();
    RunLoop::main().stop();
  }
  bool succeeded = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::optional<NSError> error;
  const auto analyzer = WaveformAnalyzer::initWithAudioAssetURL(argv[1], &error);
  if (!analyzer) return std::printf("%s\n", error->localizedDescription().c_str()), 1;
  const auto host = std::make_shared<Host>();
  analyzer->setDelegate(host);

  std::map<int, std::pair<float, float>> strongest;  // of each second: power and frequency
  WaveformFFTSetting spectra;
  spectra.eachBlock = [&](const TempiFFT& fft, double startSeconds) {
    const auto& powers = *fft.bandMagnitudes();
    const auto band = std::max_element(powers.begin(), powers.end()) - powers.begin();
    auto& best = strongest[static_cast<int>(startSeconds)];
    best = std::max(best, {powers[static_cast<size_t>(band)], fft.frequencyAtBand(band)});
  };
  analyzer->samples(20, spectra);
  RunLoop::main().run();
  for (const auto& [second, best] : strongest) std::printf("%4d s: about %.0f Hz\n", second, best.second);
  return host->succeeded ? 0 : 1;
}
