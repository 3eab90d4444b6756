// H.264 through x264.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/ffmpeg/PacketEncoder.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// Encodes limited-range pictures of one size. Ticks of its packets count pictures: picture n has presentation tick n; the first
/// decode ticks are negative where pictures are reordered. Packets hold NAL units behind 4-byte lengths. One thread at a time.
class H264Encoder {
 public:
  struct Settings {
    int width = 0, height = 0;  ///< odd ones are rounded up to even ones, the last row or column repeated
    int64_t rateNumerator = 30, rateDenominator = 1;
    PictureColor color;
    VideoEncoderOptions options;
    std::string logName;
  };

  /// Why these options cannot be honoured; empty where they can.
  static std::string problemWith(const VideoEncoderOptions& options);
  /// Null with a libav error where the encoder cannot be had.
  static std::unique_ptr<H264Encoder> open(const Settings& settings, int& avError);
  /// Takes over an opened context: open() makes it.
  H264Encoder(const Settings& settings, AvCodecContextPointer context, AvLogName logName);

  /// The picture, of the settings' size and colours, is kept only as long as the encoder has not copied it.
  PacketEncoder::Result encode(const PictureRef& picture, const PacketSink& sink);
  PacketEncoder::Result flush(const PacketSink& sink);
  /// The 'avc1' box of the sample description.
  std::vector<uint8_t> sampleEntry() const;

 private:
  PictureRef padded(const PictureRef& picture) const;

  Settings settings_;
  PacketEncoder encoder_;
  AvFramePointer frame_;
  int64_t nextTick_ = 0;
};

}  // namespace vidloom
