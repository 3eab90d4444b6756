// Opens a file and finds out what is in it.
#pragma once

#include <map>
#include <string>

#include "vidloom/platform/ffmpeg/MovieHeader.h"
#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"
#include "vidloom/platform/ffmpeg/PacketScan.h"
#include "vidloom/platform/ffmpeg/StreamInspector.h"

struct AVPacket;
struct AVStream;

namespace vidloom {

/// The steps of MediaFile::open, in order. Used once.
class MediaFileBuilder {
 public:
  MediaFileBuilder(const std::filesystem::path& path, const MediaLimits& limits, std::optional<NSError>* error);
  std::shared_ptr<const MediaFile> build();

 private:
  bool openBytes();
  bool readContainer();
  void prepareInspection();
  bool needsInspection(int streamIndex) const;
  /// Of every sample of a file that holds nothing but samples of one size, of all channels together; 0 of other files.
  int sampleBytes() const;
  bool readPackets();
  bool readRun(PacketScan& scan, bool mayJump);
  bool jumpToTail();
  void inspect(const AVPacket& packet, int count);
  bool describeStreams();
  bool checkLimits(const AVStream& stream, const StreamFacts& facts);
  void describe(const AVStream& stream);
  void describePicture(const AVStream& stream, MediaTrack& track) const;
  void describeRate(const AVStream& stream, const SampleTimes& times, MediaTrack& track) const;
  void measureTail(const MediaTrack& track, ScannedStream& scan) const;
  void placeTracks();
  void placeMovieTrack(size_t trackIndex);
  void trimByTag(MediaTrack& track) const;
  static void trustTimes(const SampleTimes& times, const MediaTrack& track, TrackSource& source);
  const MovieHeaderTrack* movieTrackOf(const AVStream& stream) const;
  bool fail(NSError error);

  std::filesystem::path path_;
  MediaLimits limits_;
  std::optional<NSError>* error_;
  std::shared_ptr<const SourceFile> bytes_;
  std::shared_ptr<OpenedMediaFile> file_;
  std::unique_ptr<Demuxer> demuxer_;
  std::optional<MovieHeader> movie_;
  std::map<int, StreamInspector> inspectors_;
  std::map<int, ScannedStream> scans_;
  bool isScanned_ = false;
};

}  // namespace vidloom
