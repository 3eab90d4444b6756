#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"

#include "vidloom/platform/ffmpeg/InputError.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace vidloom {

namespace {

constexpr int kSpareStreams = 33;  // covers beside the tracks, and one that shows that there are too many

/// Whether the demuxer gives right times without having looked into the streams.
bool headersSuffice(const std::string& container) {
  return isMovieContainer(container) || container == "matroska,webm" || container == "wav";
}

}  // namespace

OpenedMediaFile::OpenedMediaFile(std::filesystem::path path, const AVInputFormat* format, const MediaLimits& limits,
                                 std::shared_ptr<const SourceFile> bytes)
    : path_(std::move(path)),
      logName_(path_.string()),
      format_(format),
      container_(format->name),
      limits_(limits),
      identity_(bytes->identity()),
      bytes_(bytes) {}

std::shared_ptr<const SourceFile> OpenedMediaFile::bytes(std::optional<NSError>* error) const {
  const std::lock_guard lock(mutex_);
  if (auto open = bytes_.lock()) return open;
  auto reopened = SourceFile::open(path_, error);
  if (!reopened) return nullptr;
  if (reopened->identity() != identity_) {
    setInputError(error, inputError(AVErrorFailedToLoadMediaData, path_, "has changed since it was opened"));
    return nullptr;
  }
  bytes_ = reopened;
  return reopened;
}

std::unique_ptr<Demuxer> OpenedMediaFile::openDemuxer(std::optional<NSError>* error) const {
  auto open = bytes(error);
  if (!open) return nullptr;
  const AvLogScope scope(logName_);
  int avError = 0;
  auto demuxer = Demuxer::open(std::move(open), format_, limits_.maxTracks + kSpareStreams, logName(), avError);
  if (demuxer && !headersSuffice(container_)) avError = avformat_find_stream_info(&demuxer->context(), nullptr);
  if (avError >= 0) return demuxer;
  setInputError(error, inputErrorFor(path_, "cannot be read", avError));
  return nullptr;
}

int64_t mediaTicks(const TrackSource& source, int64_t demuxerPts, int64_t dts) {
  return dts >= source.fragmentsFromDts ? demuxerPts - source.demuxerShift : demuxerPts;
}

void OpenedMediaFile::addTrack(MediaTrack track, TrackSource source) {
  tracks_.push_back(std::move(track));
  sources_.push_back(std::move(source));
}

void OpenedMediaFile::finish() {
  for (const MediaTrack& track : tracks_) {
    if (track.kind == MediaKind::other) continue;
    duration_ = CMTimeMaximum(duration_, CMTimeRangeGetEnd(track.timeRange));
  }
}

}  // namespace vidloom
