// Runs of pictures and sound through a movie writer.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {

inline constexpr int movieWidth = 160, movieHeight = 96;

inline MovieWriter::VideoSettings smallVideo(int width = movieWidth, int height = movieHeight) {
  MovieWriter::VideoSettings settings;
  settings.width = width;
  settings.height = height;
  settings.encoder.preset = "veryfast";
  settings.encoder.threads = 1;
  return settings;
}

/// The first error of a sequence of calls, in a form that a failing test prints.
class ErrorKeeper {
 public:
  std::optional<NSError>* slot() { return &error; }
  std::string text() const { return error ? error->description() : "no error"; }
  std::optional<NSError> error;
};

/// Settings and pictures that make large files.
inline MovieWriter::VideoSettings heavyVideo() {
  MovieWriter::VideoSettings settings = smallVideo(640, 360);
  settings.encoder.preset = "ultrafast";
  settings.encoder.crf = 1;
  return settings;
}
inline bool appendNoise(MovieWriter& writer, int frame, std::optional<NSError>* error) {
  return writer.appendVideo(noisyPicture(static_cast<uint32_t>(frame), 640, 360), CMTimeMake(frame, 30), CMTimeMake(1, 30), error);
}

}  // namespace vidloom::testing
