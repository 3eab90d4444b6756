// The movie writer behind MovieWriter::create.
#pragma once

#include <atomic>
#include <memory>

#include "vidloom/platform/ffmpeg/MovieAudioTrack.h"
#include "vidloom/platform/ffmpeg/MovieErrors.h"
#include "vidloom/platform/ffmpeg/MovieVideoTrack.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/ffmpeg/ScratchFile.h"

namespace vidloom {

class MovieFileWriter : public MovieWriter {
 public:
  MovieFileWriter(const std::filesystem::path& destination, const std::optional<VideoSettings>& video,
                  const std::optional<AudioSettings>& audio, std::unique_ptr<ScratchFile> file);

  bool appendVideo(const PictureRef& picture, const CMTime& time, const CMTime& duration, std::optional<NSError>* error) override;
  bool appendAudio(const float* interleaved, int frameCount, const CMTime& time, std::optional<NSError>* error) override;
  bool endVideo(std::optional<NSError>* error) override;
  bool endAudio(std::optional<NSError>* error) override;
  bool finish(std::optional<NSError>* error) override;
  void cancel() override { cancelled_ = true; }

 private:
  std::optional<NSError> write();

  std::filesystem::path destination_;
  MovieErrors errors_;
  std::atomic<bool> cancelled_{false};
  std::unique_ptr<MovieVideoTrack> video_;
  std::unique_ptr<MovieAudioTrack> audio_;
  std::unique_ptr<ScratchFile> file_;
};

}  // namespace vidloom
