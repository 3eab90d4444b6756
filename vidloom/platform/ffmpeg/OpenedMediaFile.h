// The opened file with what its decoders need.
#pragma once

#include <mutex>

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/Demuxer.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/ffmpeg/SampleTimes.h"
#include "vidloom/platform/ffmpeg/StreamInspector.h"

namespace vidloom {

/// A place in an audio track that can be jumped to by its byte, for containers whose own seeking is not exact.
struct SoundMark {
  int64_t ticks = 0;     ///< presentation time of the packet there
  int64_t position = 0;  ///< its first byte
};

struct TrackSource;
/// The media time of a presentation time that the demuxer gives for a packet with that decoding time.
int64_t mediaTicks(const TrackSource& source, int64_t demuxerPts, int64_t dts);

/// How the packets of a track are read and decoded. Ticks are those of `numerator / denominator` seconds.
struct TrackSource {
  AvCodecParametersPointer parameters;
  StreamFacts facts;
  int numerator = 1, denominator = 1;
  int64_t demuxerShift = 0;         ///< ticks: the demuxer's presentation time - media time, for the packets of fragments
  int64_t fragmentsFromDts = 0;     ///< decoding time at which the fragments begin
  std::vector<KeyFrame> keyFrames;  ///< sorted by pts; empty: not known, the demuxer seeks by itself
  int64_t firstTicks = 0;           ///< media time of the earliest sample
  int reorderDepth = 0;
  bool seeksByPosition = false;       ///< key frames and marks are byte positions
  std::vector<SoundMark> soundMarks;  ///< sorted
  int64_t soundAnchor = 0;            ///< sample number of the very first sample that is decoded
  bool hasSoundAnchor = false;
  bool soundTimesAreExact = false;  ///< packets lie where their time stamps say, to the sample
  int64_t firstPacketShift = 0;     ///< ticks from the first packet's time stamp to its first sample: its beginning may be cut off
  int soundPacketFrames = 0;        ///< samples in every packet where that is constant, for time stamps coarser than a sample
};

class OpenedMediaFile final : public MediaFile {
 public:
  OpenedMediaFile(std::filesystem::path path, const AVInputFormat* format, const MediaLimits& limits,
                  std::shared_ptr<const SourceFile> bytes);

  const std::filesystem::path& path() const override { return path_; }
  const std::string& container() const override { return container_; }
  CMTime duration() const override { return duration_; }
  const std::vector<MediaTrack>& tracks() const override { return tracks_; }

  const MediaLimits& limits() const { return limits_; }
  /// The file's name for messages.
  const std::string& logName() const { return logName_; }
  const TrackSource& source(int trackIndex) const { return sources_[static_cast<size_t>(trackIndex)]; }
  /// A demuxer that reads from the beginning. Null with an error, also where the path leads to other bytes by now.
  std::unique_ptr<Demuxer> openDemuxer(std::optional<NSError>* error) const;

  /// While the file is being opened only.
  void addTrack(MediaTrack track, TrackSource source);
  void finish();
  MediaTrack& track(size_t index) { return tracks_[index]; }
  TrackSource& sourceBeingBuilt(size_t index) { return sources_[index]; }

 private:
  std::shared_ptr<const SourceFile> bytes(std::optional<NSError>* error) const;

  std::filesystem::path path_;
  std::string logName_;
  const AVInputFormat* format_;
  std::string container_;
  MediaLimits limits_;
  CMTime duration_ = kCMTimeZero;
  std::vector<MediaTrack> tracks_;
  std::vector<TrackSource> sources_;
  SourceFile::Identity identity_;
  mutable std::mutex mutex_;
  mutable std::weak_ptr<const SourceFile> bytes_;  ///< open for as long as somebody reads
};

}  // namespace vidloom
