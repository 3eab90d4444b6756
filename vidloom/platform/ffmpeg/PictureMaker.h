// Decoded frames as pictures of the engine.
#pragma once

#include <memory>

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

/// Turns the frames of one track into 8-bit 4:2:0 pictures of its size and colours: frames that are so already are passed by
/// reference, others are converted or scaled. One thread at a time.
class PictureMaker {
 public:
  explicit PictureMaker(const MediaTrack& track);
  ~PictureMaker();
  /// Takes the frame over. Null with a libav error where it cannot be converted.
  PictureRef make(AvFramePointer frame, int& avError);

 private:
  bool isPassedOn(const AVFrame& frame) const;
  PictureRef convert(const AVFrame& frame, int& avError);
  bool prepareScaler(const AVFrame& frame);

  const MediaTrack& track_;
  struct Scaling;
  std::unique_ptr<Scaling> scaling_;
};

}  // namespace vidloom
