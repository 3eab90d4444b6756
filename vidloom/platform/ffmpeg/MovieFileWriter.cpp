#include "vidloom/platform/ffmpeg/MovieFileWriter.h"

#include "vidloom/platform/ffmpeg/MovieMuxer.h"

namespace vidloom {

namespace {

/// False with the error, where there is one.
bool succeeded(std::optional<NSError> problem, std::optional<NSError>* error) {
  if (!problem) return true;
  if (error != nullptr) *error = std::move(problem);
  return false;
}

}  // namespace

MovieFileWriter::MovieFileWriter(const std::filesystem::path& destination, const std::optional<VideoSettings>& video,
                                 const std::optional<AudioSettings>& audio, std::unique_ptr<ScratchFile> file)
    : destination_(destination), errors_(destination), file_(std::move(file)) {
  const auto isCancelled = [this] { return cancelled_.load(); };
  if (video) video_ = std::make_unique<MovieVideoTrack>(*video, destination, isCancelled);
  if (audio) audio_ = std::make_unique<MovieAudioTrack>(*audio, destination, isCancelled);
}

bool MovieFileWriter::appendVideo(const PictureRef& picture, const CMTime& time, const CMTime& duration,
                                  std::optional<NSError>* error) {
  return succeeded(video_ ? video_->append(picture, time, duration) : errors_.ended("video"), error);
}

bool MovieFileWriter::appendAudio(const float* interleaved, int frameCount, const CMTime& time, std::optional<NSError>* error) {
  return succeeded(audio_ ? audio_->append(interleaved, frameCount, time) : errors_.ended("sound"), error);
}

bool MovieFileWriter::endVideo(std::optional<NSError>* error) { return !video_ || succeeded(video_->end(), error); }

bool MovieFileWriter::endAudio(std::optional<NSError>* error) { return !audio_ || succeeded(audio_->end(), error); }

bool MovieFileWriter::finish(std::optional<NSError>* error) {
  return endVideo(error) && endAudio(error) && succeeded(write(), error);
}

std::optional<NSError> MovieFileWriter::write() {
  std::vector<MovieTrack> tracks;
  if (video_ && !video_->isEmpty()) tracks.push_back(video_->finish());
  if (audio_ && !audio_->isEmpty()) tracks.push_back(audio_->finish());
  if (tracks.empty()) return errors_.nothingWritten();
  if (!file_) return errors_.ended("tracks");
  const std::unique_ptr<ScratchFile> file = std::move(file_);
  if (const int errnoValue = MovieMuxer::write(tracks, *file, [this] { return cancelled_.load(); })) {
    return errors_.system("write", errnoValue);
  }
  if (cancelled_) return errors_.cancelled();
  if (const int errnoValue = file->moveTo(destination_)) return errors_.system("give the finished movie its name", errnoValue);
  return std::nullopt;
}

}  // namespace vidloom
