#include "vidloom/platform/ffmpeg/MediaFile.h"

#include "vidloom/platform/ffmpeg/MediaFileBuilder.h"

namespace vidloom {

std::shared_ptr<const MediaFile> MediaFile::open(const std::filesystem::path& path, const MediaLimits& limits,
                                                 std::optional<NSError>* error) {
  return MediaFileBuilder(path, limits, error).build();
}

}  // namespace vidloom
