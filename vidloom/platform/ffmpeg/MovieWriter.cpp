#include "vidloom/platform/ffmpeg/MovieWriter.h"

#include "vidloom/platform/ffmpeg/AacEncoder.h"
#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/H264Encoder.h"
#include "vidloom/platform/ffmpeg/MovieErrors.h"
#include "vidloom/platform/ffmpeg/MovieFileWriter.h"
#include "vidloom/platform/ffmpeg/ScratchFile.h"

namespace vidloom {

std::string MovieWriter::problemWith(const std::optional<VideoSettings>& video, const std::optional<AudioSettings>& audio) {
  constexpr int minimumSide = 2, maximumSide = 16384;
  const auto fits = [](int side) { return side >= minimumSide && side <= maximumSide; };
  if (!video && !audio) return "there is neither video nor sound";
  if (video && (!fits(video->width) || !fits(video->height))) {
    return "the picture size " + std::to_string(video->width) + "x" + std::to_string(video->height) + " cannot be encoded";
  }
  if (const std::string why = video ? H264Encoder::problemWith(video->encoder) : std::string(); !why.empty()) return why;
  return audio ? AacEncoder::problemWith(*audio) : std::string();
}

std::unique_ptr<MovieWriter> MovieWriter::create(const std::filesystem::path& destination,
                                                 const std::optional<VideoSettings>& video,
                                                 const std::optional<AudioSettings>& audio, std::optional<NSError>* error) {
  AvLog::install();
  const auto fail = [&](NSError problem) {
    if (error != nullptr) *error = std::move(problem);
    return nullptr;
  };
  const MovieErrors errors(destination);
  if (const std::string why = problemWith(video, audio); !why.empty()) return fail(errors.unsupported(why));
  int errnoValue = 0;
  std::unique_ptr<ScratchFile> file = ScratchFile::openFor(destination, errnoValue);
  if (!file) return fail(errors.system("make a file in the folder of", errnoValue));
  return std::make_unique<MovieFileWriter>(destination, video, audio, std::move(file));
}

}  // namespace vidloom
