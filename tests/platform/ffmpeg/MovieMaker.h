// Runs of pictures and sound through a movie writer.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {

inline constexpr int movieWidth = 160, movieHeight = 96;

/// A destination of its own, in a folder of its own.
inline std::filesystem::path freshDestination(const std::string& name = "movie.mp4") {
  static int counter = 0;
  const auto folder = scratchFolder() / ("out" + std::to_string(++counter));
  std::filesystem::create_directories(folder);
  return folder / name;
}

inline size_t filesBeside(const std::filesystem::path& destination) {
  const std::filesystem::directory_iterator files(destination.parent_path());
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

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

}  // namespace vidloom::testing
