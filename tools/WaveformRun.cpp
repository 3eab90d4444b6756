#include "tools/WaveformRun.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "hostkit/WaveformPeaks.h"
#include "hostkit/WaveformPicture.h"
#include "tools/Console.h"
#include "tools/DataOutput.h"
#include "tools/SoundAnalysis.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr int kVersion = 2;
constexpr int kBitsOfAByte = 8;

ExitCode failWith(ExitCode code, const std::string& message) {
  Console::message(message);
  return code;
}

std::string millisecondsText(double seconds) {
  constexpr double kMilliseconds = 1000;
  return NSStringWithFormat("%.4g ms", seconds * kMilliseconds);
}

WaveformDrawing emptyDrawing(const WaveformOptions& options, const SoundTrack& track) {
  WaveformDrawing drawing;
  drawing.title = options.media.filename().string();
  drawing.startSeconds = track.startSeconds;
  drawing.endSeconds = track.fileEndSeconds;
  return drawing;
}

ExitCode writeDrawing(const WaveformDrawing& drawing, const std::filesystem::path& output) {
  if (output.extension() == ".svg") return writeData(output, svgOfWaveform(drawing));
  return writePicture(pictureOfWaveform(drawing), output);
}

bool isPicture(const std::filesystem::path& output) { return output.extension() == ".svg" || output.extension() == ".png"; }

ExitCode writeLevels(const WaveformOptions& options, const AnalysedSound& sound) {
  DataOutput output(options.output);
  output.write("{\"count\":");
  output.write(options.count);
  output.write(",\"samplesPerValue\":");
  output.write(sound.samplesPerLevel);
  output.write(",\"values\":[");
  const char* separator = "";
  for (const float level : sound.levels) {
    output.write(separator);
    output.write(level);
    separator = ",";
    if (output.hasFailed()) break;
  }
  output.write("]}\n");
  return output.finish();
}

ExitCode drawLevels(const WaveformOptions& options, const AnalysedSound& sound, const SoundTrack& track) {
  WaveformDrawing drawing = emptyDrawing(options, track);
  drawing.levels = sound.levels;
  drawing.secondsPerValue = static_cast<double>(sound.samplesPerLevel) / (track.sampleRate * static_cast<double>(track.channels));
  drawing.description =
      track.text() + "; " + std::to_string(sound.levels.size()) + " levels of " + millisecondsText(drawing.secondsPerValue);
  return writeDrawing(drawing, options.output);
}

ExitCode runLevels(const WaveformOptions& options) {
  std::optional<NSError> error;
  auto analyzer = WaveformAnalyzer::initWithAudioAssetURL(options.media, &error);
  if (!analyzer) return failWith(ExitCode::input, textOf(*error, options.media));
  const std::string problem = problemWithDerivedFile(options.output, options.media);
  if (!problem.empty()) return failWith(ExitCode::output, problem);
  const auto track = soundTrackOf(*analyzer->assetReader()->asset(), *analyzer->audioAssetTrack());
  if (!track) return failWith(ExitCode::input, options.media.string() + ": the sound cannot be read");
  const AnalysedSound sound = analyse(std::move(analyzer), [&](WaveformAnalyzer& it) { it.samples(options.count); });
  if (sound.code != ExitCode::done) return sound.code;
  return isPicture(options.output) ? drawLevels(options, sound, *track) : writeLevels(options, sound);
}

/// Rounded down, so that 8 bits keep the order and the ends of 16.
int64_t valueOf(int16_t value, int bits) { return bits == kBitsOfAByte ? value >> kBitsOfAByte : value; }

ExitCode writePeaksJson(const WaveformOptions& options, const WaveformPeaks& peaks) {
  DataOutput output(options.output);
  const auto field = [&output](const char* name, int64_t value) {
    output.write(name);
    output.write(value);
  };
  field("{\"version\":", kVersion);
  field(",\"channels\":", 1);
  field(",\"sample_rate\":", peaks.sampleRate);
  field(",\"samples_per_pixel\":", peaks.framesPerPixel);
  field(",\"bits\":", options.bits);
  field(",\"length\":", static_cast<int64_t>(peaks.values.size() / 2));
  output.write(",\"data\":[");
  const char* separator = "";
  for (const int16_t value : peaks.values) {
    field(separator, valueOf(value, options.bits));
    separator = ",";
    if (output.hasFailed()) break;
  }
  output.write("]}\n");
  return output.finish();
}

void writeLittleEndian(DataOutput& output, int64_t value, int byteCount) {
  std::string bytes;
  for (int i = 0; i < byteCount; ++i) bytes += static_cast<char>(value >> (kBitsOfAByte * i) & 0xff);
  output.write(bytes);
}

ExitCode writePeaksBinary(const WaveformOptions& options, const WaveformPeaks& peaks) {
  constexpr int kFieldBytes = 4;
  DataOutput output(options.output);
  const bool hasEightBits = options.bits == kBitsOfAByte;
  for (const int64_t field : {int64_t{kVersion}, int64_t{hasEightBits ? 1 : 0}, peaks.sampleRate, peaks.framesPerPixel,
                              static_cast<int64_t>(peaks.values.size() / 2), int64_t{1}}) {
    writeLittleEndian(output, field, kFieldBytes);
  }
  for (const int16_t value : peaks.values) {
    writeLittleEndian(output, valueOf(value, options.bits), hasEightBits ? 1 : 2);
    if (output.hasFailed()) break;
  }
  return output.finish();
}

ExitCode drawPeaks(const WaveformOptions& options, const WaveformPeaks& peaks, const SoundTrack& track) {
  WaveformDrawing drawing = emptyDrawing(options, track);
  drawing.peaks = peaks.values;
  drawing.secondsPerValue = static_cast<double>(peaks.framesPerPixel) / static_cast<double>(peaks.sampleRate);
  drawing.description = track.text() + (track.channels > 1 ? " averaged; " : "; ") + std::to_string(peaks.values.size() / 2) +
                        " peaks of " + millisecondsText(drawing.secondsPerValue);
  return writeDrawing(drawing, options.output);
}

ExitCode runPeaks(const WaveformOptions& options) {
  const auto asset = AVURLAsset::initWithURL(options.media);
  if (asset->openError()) return failWith(ExitCode::input, textOf(*asset->openError(), options.media));
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeAudio);
  const auto track = tracks.empty() ? std::nullopt : soundTrackOf(*asset, *tracks.front());
  if (!track) return failWith(ExitCode::input, options.media.string() + ": has no audio track");
  const std::string problem = problemWithDerivedFile(options.output, options.media);
  if (!problem.empty()) return failWith(ExitCode::output, problem);
  const auto goOn = [](double percent) {
    showPercent(percent);
    return true;
  };
  std::optional<NSError> error;
  const auto peaks = readWaveformPeaks(asset, options.count, goOn, &error);
  showPercent(-1);
  if (!peaks) return failWith(exitCodeOf(*error), textOf(*error, options.media));
  if (isPicture(options.output)) return drawPeaks(options, *peaks, *track);
  return options.output.extension() == ".dat" ? writePeaksBinary(options, *peaks) : writePeaksJson(options, *peaks);
}

}  // namespace

ExitCode runWaveform(const WaveformOptions& options) { return options.wantsPeaks ? runPeaks(options) : runLevels(options); }

}  // namespace vidloom
