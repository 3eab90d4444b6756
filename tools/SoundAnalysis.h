// What `waveform` and `spectrum` have in common.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/ExitCode.h"
#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom {

/// Where a file's sound lies in time, and what it is made of.
struct SoundTrack {
  double sampleRate = 0;  ///< in Hz
  int64_t channels = 0;
  double startSeconds = 0, endSeconds = 0;
  double fileEndSeconds = 0;

  /// "44100 Hz, 2 channels"
  std::string text() const;
};

/// Nullopt for a track without a stream of sound.
std::optional<SoundTrack> soundTrackOf(const AVAsset& asset, const AVAssetTrack& track);

struct AnalysedSound {
  ExitCode code = ExitCode::done;  ///< what went wrong was said on standard error
  std::vector<float> levels;
  int64_t samplesPerLevel = 0;
};

/// Waits on the main thread for what `start` begins, telling the progress on a terminal. Gives up, without a word, once `mayGoOn`
/// says no; what was captured in spectra may be used a moment longer.
AnalysedSound analyse(std::shared_ptr<WaveformAnalyzer> given, const std::function<void(WaveformAnalyzer&)>& start,
                      const std::function<bool()>& mayGoOn = {});

/// On standard error, where that is a terminal; less than 0 ends the line.
void showPercent(double percent);

/// Null images mean that memory has run out.
ExitCode writePicture(const CGImageRef& image, const std::filesystem::path& output);

}  // namespace vidloom
