// Decodes the packets of a video track one after the other.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/PacketSource.h"

namespace vidloom {

struct DecodedFrame {
  AvFramePointer frame;
  int64_t pts = 0;             ///< ticks of media time
  bool isDamaged = false;      ///< data was wrong
  bool isUnrecovered = false;  ///< leans on pictures that were not decoded
};

/// The pictures of a track in the order in which they are shown, from where decoding began. One thread at a time.
class FrameDecoder {
 public:
  enum class Status { frame, end, cancelled };

  static std::unique_ptr<FrameDecoder> open(std::unique_ptr<PacketSource> packets, int threads, std::optional<NSError>* error);

  /// The next picture. Damage is logged with file and time and passed over.
  Status next(DecodedFrame& decoded);
  /// Forgets everything and begins again at a key frame, or at the first packet of the file.
  bool restartAt(const KeyFrame& key);
  bool restartBefore(int64_t ticks);
  bool restartAtBeginning();
  /// The latest presentation time of the packets that went into the decoder since the last restart; nullopt before the first.
  std::optional<int64_t> latestSentPts() const { return latestSentPts_; }
  /// Presentation time of the first key packet since the last restart; nullopt where none has come yet.
  std::optional<int64_t> firstKeyPts() const { return firstKeyPts_; }
  /// Whether the picture is shown before the key frame at which decoding began after a jump.
  bool isLeading(const DecodedFrame& decoded) const;
  PacketSource& packets() { return *packets_; }

 private:
  FrameDecoder(std::unique_ptr<PacketSource> packets, AvCodecContextPointer context);
  void reset(bool atBeginning);
  Status sendPacket();
  void classify(DecodedFrame& decoded);
  void noteSent();
  void report(const std::string& what, int64_t ticks, int avError);

  std::unique_ptr<PacketSource> packets_;
  AvCodecContextPointer context_;
  AvLogName logName_;
  AvPacketPointer packet_;
  bool drained_ = false;
  bool fromBeginning_ = true;
  bool sawUnrecovered_ = false, sawRecovered_ = false;
  int64_t packetPts_ = 0;
  std::optional<int64_t> latestSentPts_, firstKeyPts_;
  std::pair<int64_t, int> lastReport_{0, 0};
  int reports_ = 0, errorsAtEnd_ = 0;
};

}  // namespace vidloom
