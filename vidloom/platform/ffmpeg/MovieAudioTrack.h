// The sound track of a movie that is being written.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/ffmpeg/AacEncoder.h"
#include "vidloom/platform/ffmpeg/MovieErrors.h"
#include "vidloom/platform/ffmpeg/MovieTrack.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/ffmpeg/PacketSpool.h"

namespace vidloom {

/// Encodes sound and keeps its packets. Sound lies at its sample: gaps become silence, overlaps are cut. One thread at a time;
/// `isCancelled` is asked on it.
class MovieAudioTrack {
 public:
  MovieAudioTrack(const MovieWriter::AudioSettings& settings, const std::filesystem::path& destination,
                  std::function<bool()> isCancelled);

  std::optional<NSError> append(const float* interleaved, int frameCount, const CMTime& time);
  std::optional<NSError> end();
  bool isEmpty() const { return encodedFrames_ == 0; }
  /// After end(); the track refers to this object's packets.
  MovieTrack finish();

 private:
  std::optional<NSError> openEncoder();
  std::optional<NSError> encode(const float* interleaved, int frameCount);
  std::optional<NSError> encodeSilence(int64_t frameCount);
  int keep(const EncodedPacket& packet);
  int64_t frameAt(const CMTime& time) const;
  CMTime timeOf(int64_t frame) const;

  MovieWriter::AudioSettings settings_;
  std::filesystem::path destination_;
  MovieErrors errors_;
  std::function<bool()> isCancelled_;
  PacketSpool spool_;
  PacketSink sink_;
  std::unique_ptr<AacEncoder> encoder_;
  std::vector<uint8_t> sampleEntry_;
  int delayFrames_ = 0;
  std::vector<uint32_t> packetBytes_;
  int64_t firstFrame_ = 0;
  int64_t encodedFrames_ = 0;
  bool ended_ = false;
};

}  // namespace vidloom
