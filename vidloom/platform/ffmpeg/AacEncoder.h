// AAC-LC.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/ffmpeg/PacketEncoder.h"

namespace vidloom {

/// Encodes interleaved float sound. Ticks of its packets count frames of sound; the first packet has the tick -delayFrames().
/// Every packet holds packetFrames frames. One thread at a time.
class AacEncoder {
 public:
  static constexpr int packetFrames = 1024;

  /// Why these settings cannot be honoured; empty where they can.
  static std::string problemWith(const MovieWriter::AudioSettings& settings);
  /// Null with a libav error where the encoder cannot be had.
  static std::unique_ptr<AacEncoder> open(const MovieWriter::AudioSettings& settings, const std::string& logName, int& avError);

  /// Takes over an opened context: open() makes it.
  AacEncoder(const MovieWriter::AudioSettings& settings, AvCodecContextPointer context, AvLogName logName);

  /// Values that are no numbers count as silence, values beyond +-1 as +-1. A null pointer stands for silence.
  PacketEncoder::Result encode(const float* interleaved, int frameCount, const PacketSink& sink);
  PacketEncoder::Result flush(const PacketSink& sink);
  /// How many frames of sound the decoder gives before the first one that was encoded.
  int delayFrames() const;
  /// The 'mp4a' box of the sample description.
  std::vector<uint8_t> sampleEntry() const;

 private:
  bool prepareFrame();
  void fill(const float* interleaved, int frameCount);
  PacketEncoder::Result submitFrame(const PacketSink& sink);

  MovieWriter::AudioSettings settings_;
  PacketEncoder encoder_;
  AvFramePointer frame_;
  int filledFrames_ = 0;
  int64_t nextTick_ = 0;
};

}  // namespace vidloom
