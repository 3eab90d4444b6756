#include "vidloom/platform/reading/AudioSettings.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"

namespace vidloom {

namespace {

constexpr double kMaximumRate = 384000;

double numberOr(const NSDictionary& settings, const std::string& key, double otherwise) {
  double number = 0;
  return numberValue(settings, key, number) ? number : otherwise;
}

/// Empty where the settings can be honoured.
std::string problemWith(const NSDictionary& settings, const AudioFormat& standard) {
  if (numberOr(settings, AVFormatIDKey, 0) != kAudioFormatLinearPCM) return AVFormatIDKey + " is not linear PCM";
  if (numberOr(settings, AVLinearPCMIsBigEndianKey, 0) != 0) return AVLinearPCMIsBigEndianKey + " is set";
  if (numberOr(settings, AVLinearPCMIsNonInterleaved, 0) != 0) return AVLinearPCMIsNonInterleaved + " is set";
  const bool isFloat = numberOr(settings, AVLinearPCMIsFloatKey, standard.isFloat ? 1 : 0) != 0;
  const double bits = numberOr(settings, AVLinearPCMBitDepthKey, isFloat ? 32 : 16);
  if (bits != (isFloat ? 32 : 16)) return AVLinearPCMBitDepthKey + " is neither 16 (integers) nor 32 (floats)";
  const double rate = numberOr(settings, AVSampleRateKey, standard.sampleRate);
  if (!(rate >= 1 && rate <= std::max<double>(kMaximumRate, standard.sampleRate)) || rate != std::floor(rate))
    return AVSampleRateKey + " cannot be had";
  const double channels = numberOr(settings, AVNumberOfChannelsKey, standard.channels);
  if (channels != 1 && channels != 2 && channels != standard.channels) return AVNumberOfChannelsKey + " cannot be had";
  return {};
}

}  // namespace

std::optional<AudioFormat> audioFormatIn(const std::optional<NSDictionary>& settings, const AudioFormat& standard,
                                         std::optional<NSError>* error) {
  if (!settings) return standard;
  const std::string problem = problemWith(*settings, standard);
  if (!problem.empty()) {
    if (error) *error = AVMakeError(AVErrorUnsupportedOutputSettings, "The audio settings cannot be honoured: " + problem);
    return std::nullopt;
  }
  AudioFormat format = standard;
  format.isFloat = numberOr(*settings, AVLinearPCMIsFloatKey, standard.isFloat ? 1 : 0) != 0;
  format.sampleRate = static_cast<int>(numberOr(*settings, AVSampleRateKey, standard.sampleRate));
  format.channels = static_cast<int>(numberOr(*settings, AVNumberOfChannelsKey, standard.channels));
  return format;
}

}  // namespace vidloom
