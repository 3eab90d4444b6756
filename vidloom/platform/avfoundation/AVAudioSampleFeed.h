// Brings sound to the movie writer in the rate and the channels that it encodes.
#pragma once

#include <span>

#include "vidloom/platform/avfoundation/AVSampleFeed.h"
#include "vidloom/platform/ffmpeg/PcmConverter.h"

namespace vidloom {

class AVAudioSampleFeed : public AVSampleFeed {
 public:
  explicit AVAudioSampleFeed(const MovieWriter::AudioSettings& settings) : settings_(settings) {}
  std::string problemWith(const CMSampleBufferRef& sample) const override;
  bool append(const CMSampleBufferRef& sample, const CMTime& time, MovieWriter& movie, std::optional<NSError>* error) override;
  bool end(MovieWriter& movie, std::optional<NSError>* error) override;

 private:
  bool isAsEncoded(const AudioStreamBasicDescription& stream) const;
  bool continuesAt(const CMTime& time, const AudioStreamBasicDescription& stream) const;
  bool startRun(const CMTime& time, const AudioStreamBasicDescription& stream, MovieWriter& movie, std::optional<NSError>* error);
  bool endRun(MovieWriter& movie, std::optional<NSError>* error);
  bool bring(std::span<const float> interleaved, MovieWriter& movie, std::optional<NSError>* error);

  MovieWriter::AudioSettings settings_;
  std::unique_ptr<PcmConverter> converter_;
  AudioStreamBasicDescription stream_;
  CMTime runStart_;
  int64_t runFramesIn_ = 0;   ///< at the source's rate
  int64_t runFramesOut_ = 0;  ///< at the encoder's
};

}  // namespace vidloom
