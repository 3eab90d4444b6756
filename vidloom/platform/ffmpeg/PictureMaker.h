// Decoded frames as pictures of the engine.
#pragma once

#include <memory>

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/FilterGraph.h"
#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"

namespace vidloom {

/// Turns the frames of one track into 8-bit 4:2:0 pictures of its size and colours: frames that are so already are passed by
/// reference, others are converted or scaled, HDR ones mapped to SDR. One thread at a time.
class PictureMaker {
 public:
  PictureMaker(const MediaTrack& track, const TrackSource& source);
  ~PictureMaker();
  /// Takes the frame over. Null with a libav error where it cannot be converted.
  PictureRef make(AvFramePointer frame, int& avError);

 private:
  bool isPassedOn(const AVFrame& frame) const;
  PictureRef scale(const AVFrame& frame, int& avError);
  bool prepareScaler(const AVFrame& frame);
  PictureRef changeColors(AvFramePointer frame, int& avError);
  std::string colorChain() const;
  void completeTags(AVFrame& frame) const;

  const MediaTrack& track_;
  const StreamFacts& facts_;
  bool changesColors_;  ///< by the tags: another matrix, primaries or transfer than a Picture can have
  std::unique_ptr<FilterGraph> colorGraph_;
  struct Scaling;
  std::unique_ptr<Scaling> scaling_;
};

}  // namespace vidloom
