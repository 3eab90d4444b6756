// The steps from the bytes of an image file to an upright picture.
#pragma once

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/StillImageDecoder.h"
#include "vidloom/platform/ffmpeg/StillImageFile.h"

namespace vidloom {

/// Reads one file; every step gives false with the error set.
class StillImageReader {
 public:
  StillImageReader(const std::filesystem::path& path, const MediaLimits& limits, std::optional<NSError>* error)
      : path_(path), limits_(limits), error_(error) {}
  std::optional<StillImage> read();

 private:
  bool fail(AVError code, const std::string& problem, int avError = 0);
  bool inspect();
  bool decode();
  int decodeFrame();
  bool convert();
  bool place();
  bool turn();
  void describe();
  std::shared_ptr<uint8_t> makePixels(size_t width, size_t height);

  const std::filesystem::path path_;
  const MediaLimits limits_;
  std::optional<NSError>* error_;
  StillImageFile file_;
  AvFramePointer frame_;
  StillImage image_;
};

}  // namespace vidloom
