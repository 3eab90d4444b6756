// Opened media for the tests of this folder.
#pragma once

#include <stdexcept>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom::testing {

inline std::filesystem::path sample(const std::string& name) { return std::filesystem::path(VIDLOOM_TEST_DATA) / "media" / name; }

struct OpenedMedia {
  std::shared_ptr<const MediaFile> file;
  int track = 0;
  const MediaTrack& info() const { return file->tracks().at(static_cast<size_t>(track)); }
};

/// The first track of that kind. Throws where there is none.
inline OpenedMedia openMedia(const std::filesystem::path& path, MediaKind kind) {
  std::optional<NSError> error;
  OpenedMedia media{MediaFile::open(path, {}, &error)};
  if (!media.file) throw std::runtime_error(error->localizedDescription());
  while (media.info().kind != kind) ++media.track;
  return media;
}

/// A decoder of that track. Throws where it cannot be opened.
template <class Decoder, class... Options>
std::unique_ptr<Decoder> decoderFor(const OpenedMedia& media, const Options&... options) {
  std::optional<NSError> error;
  auto decoder = Decoder::open(media.file, media.track, options..., &error);
  if (!decoder) throw std::runtime_error(error->localizedDescription());
  return decoder;
}

}  // namespace vidloom::testing
