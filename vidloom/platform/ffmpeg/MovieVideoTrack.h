// The video track of a movie that is being written.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/ffmpeg/FrameTimes.h"
#include "vidloom/platform/ffmpeg/H264Encoder.h"
#include "vidloom/platform/ffmpeg/MovieErrors.h"
#include "vidloom/platform/ffmpeg/MovieTrack.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/ffmpeg/PacketSpool.h"
#include "vidloom/platform/pixels/LayerCompositor.h"

namespace vidloom {

/// Encodes pictures and keeps their packets. The encoder is opened with the first picture, whose tags become the stream's. One
/// thread at a time; `isCancelled` is asked on it.
class MovieVideoTrack {
 public:
  MovieVideoTrack(const MovieWriter::VideoSettings& settings, const std::filesystem::path& destination,
                  std::function<bool()> isCancelled);

  std::optional<NSError> append(const PictureRef& picture, const CMTime& time, const CMTime& duration);
  std::optional<NSError> end();
  bool isEmpty() const { return packets_.empty(); }
  /// After end(); the track refers to this object's packets.
  MovieTrack finish();

 private:
  struct Packet {
    uint32_t sizeBytes;
    int32_t presentationIndex;
    int32_t decodeIndex;
    bool sync;
  };

  struct Step {
    int64_t durationTicks;
    int64_t presentationOffset;
  };

  std::optional<NSError> problemWith(const PictureRef& picture, const CMTime& time) const;
  std::optional<NSError> openEncoder(const PictureColor& color, const CMTime& duration);
  PictureRef prepared(const PictureRef& picture);
  int keep(const EncodedPacket& packet);
  CMTime endOfLast() const;
  int64_t decodeTicks(int32_t decodeIndex) const;
  /// In decode order, as the file tells them.
  std::vector<Step> steps() const;
  /// The steps, in a timescale in which the file can hold them.
  std::vector<Step> fittingSteps();

  MovieWriter::VideoSettings settings_;
  std::filesystem::path destination_;
  MovieErrors errors_;
  std::function<bool()> isCancelled_;
  PacketSpool spool_;
  PacketSink sink_;
  PictureColor color_;
  LayerCompositor scaler_;
  std::unique_ptr<H264Encoder> encoder_;
  std::vector<uint8_t> sampleEntry_;
  std::vector<Packet> packets_;
  FrameTimes times_;
  CMTime lastTime_, lastDuration_, lastStep_;
  bool ended_ = false;
};

}  // namespace vidloom
