// The packets of one track, in media time.
#pragma once

#include <memory>

#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/Demuxer.h"
#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"

namespace vidloom {

/// A demuxer that gives one track only. One thread at a time, but cancel() from any.
class PacketSource {
 public:
  static std::unique_ptr<PacketSource> open(std::shared_ptr<const OpenedMediaFile> file, int trackIndex,
                                            std::optional<NSError>* error);

  /// The next packet, its times in ticks of media time. 0, AVERROR_EOF at the end or after too many failures in a row,
  /// AVERROR_EXIT after cancel(); any other error is damage: ask again.
  int next(AVPacket& packet);
  /// Goes to a place where decoding can begin. False where the demuxer cannot: then it stands at the beginning.
  bool seekTo(const KeyFrame& key);
  /// Goes to a packet at or before `ticks` where the demuxer finds one. False as above.
  bool seekBefore(int64_t ticks);
  bool seekToStart();
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  const OpenedMediaFile& file() const { return *file_; }
  const TrackSource& source() const { return source_; }
  const MediaTrack& track() const { return track_; }
  double seconds(int64_t ticks) const;

 private:
  PacketSource(std::shared_ptr<const OpenedMediaFile> file, int trackIndex, std::unique_ptr<Demuxer> demuxer);
  void prepareDemuxer();
  void forgetUnsureTime(AVPacket& packet);
  bool restart();
  bool seek(int stream, int64_t target, int flags);

  std::shared_ptr<const OpenedMediaFile> file_;
  const TrackSource& source_;
  const MediaTrack& track_;
  std::atomic<bool> cancelled_ = false;
  std::unique_ptr<Demuxer> demuxer_;
  int errorsInARow_ = 0;
  bool isUnsure_ = false;              ///< times cannot be trusted yet
  std::optional<int64_t> unsurePage_;  ///< where the first packet after the jump lies
  bool fresh_ = true;                  ///< nothing was read yet
};

}  // namespace vidloom
