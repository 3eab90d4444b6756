#include "vidloom/audio/SoundFormat.h"

namespace vidloom {

NSDictionary sixteenBitSettings() {
  return {{AVFormatIDKey, int64_t{kAudioFormatLinearPCM}},
          {AVLinearPCMBitDepthKey, int64_t{16}},
          {AVLinearPCMIsBigEndianKey, false},
          {AVLinearPCMIsFloatKey, false},
          {AVLinearPCMIsNonInterleaved, false}};
}

std::optional<AudioStreamBasicDescription> streamDescriptionOf(const AVAssetTrack& track) {
  std::optional<AudioStreamBasicDescription> found;
  for (const CMFormatDescriptionRef& description : track.formatDescriptions()) {
    const auto* const stream = CMAudioFormatDescriptionGetStreamBasicDescription(description);
    if (stream != nullptr) found = *stream;
  }
  return found;
}

}  // namespace vidloom
