#include "vidloom/platform/avfoundation/AVAssetWriterSettings.h"

#include <cmath>
#include <limits>
#include <string>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coremedia/CMFormatDescription.h"

namespace vidloom {

namespace {

/// A number that is positive and an int, cut off.
std::optional<int> positiveInt(const NSDictionary& settings, const std::string& key) {
  double value = 0;
  if (!numberValue(settings, key, value) || !(value >= 1 && value <= std::numeric_limits<int>::max())) return std::nullopt;
  return static_cast<int>(value);
}

std::string textOf(const NSDictionary& settings, const std::string& key) {
  const auto found = settings.find(key);
  if (found == settings.end()) return {};
  if (const auto* text = std::any_cast<std::string>(&found->second)) return *text;
  if (const auto* text = std::any_cast<const char*>(&found->second)) return *text;
  return {};
}

}  // namespace

std::optional<MovieWriter::VideoSettings> AVAssetWriterSettings::video(const NSDictionary& outputSettings) {
  const auto width = positiveInt(outputSettings, AVVideoWidthKey);
  const auto height = positiveInt(outputSettings, AVVideoHeightKey);
  if (!width || !height || textOf(outputSettings, AVVideoCodecKey) != AVVideoCodecTypeH264) return std::nullopt;
  const MovieWriter::VideoSettings settings{*width, *height, {}};
  if (!MovieWriter::problemWith(settings, std::nullopt).empty()) return std::nullopt;
  return settings;
}

std::optional<MovieWriter::AudioSettings> AVAssetWriterSettings::audio(const NSDictionary& outputSettings) {
  MovieWriter::AudioSettings settings;
  double format = 0, rate = 0, bitRate = 0;
  const auto channels = positiveInt(outputSettings, AVNumberOfChannelsKey);
  if (!channels || !numberValue(outputSettings, AVFormatIDKey, format) || format != kAudioFormatMPEG4AAC) return std::nullopt;
  if (!numberValue(outputSettings, AVSampleRateKey, rate) || !(rate > 0)) return std::nullopt;
  settings.sampleRate = rate;
  settings.channels = *channels;
  if (numberValue(outputSettings, AVEncoderBitRateKey, bitRate)) {
    if (!(std::fabs(bitRate) <= std::numeric_limits<int>::max())) return std::nullopt;
    settings.bitRate = static_cast<int64_t>(bitRate);
  }
  if (!MovieWriter::problemWith(std::nullopt, settings).empty()) return std::nullopt;
  return settings;
}

}  // namespace vidloom
