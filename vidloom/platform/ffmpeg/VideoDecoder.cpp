#include "vidloom/platform/ffmpeg/VideoDecoder.h"

#include "vidloom/platform/ffmpeg/FileVideoDecoder.h"
#include "vidloom/platform/ffmpeg/InputError.h"

namespace vidloom {

std::unique_ptr<VideoDecoder> VideoDecoder::open(std::shared_ptr<const MediaFile> file, int trackIndex, const Options& options,
                                                 std::optional<NSError>* error) {
  auto opened = std::dynamic_pointer_cast<const OpenedMediaFile>(file);
  if (!opened || trackIndex < 0 || static_cast<size_t>(trackIndex) >= opened->tracks().size() ||
      opened->tracks()[static_cast<size_t>(trackIndex)].kind != MediaKind::video) {
    setInputError(error, inputError(AVErrorNoSourceTrack, file ? file->path() : "", "has no such video track"));
    return nullptr;
  }
  auto packets = PacketSource::open(std::move(opened), trackIndex, error);
  auto decoder = packets ? FrameDecoder::open(std::move(packets), options.threads, error) : nullptr;
  return decoder ? std::make_unique<FileVideoDecoder>(std::move(decoder)) : nullptr;
}

}  // namespace vidloom
