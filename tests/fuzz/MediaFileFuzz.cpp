// Opens whatever bytes it is given and reads a little of every track.
#include <vector>

#include "tests/fuzz/MemoryFile.h"
#include "vidloom/platform/ffmpeg/AudioDecoder.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {
namespace {

void readTrack(const std::shared_ptr<const MediaFile>& file, int index) {
  const MediaTrack& track = file->tracks()[static_cast<size_t>(index)];
  if (track.kind == MediaKind::video) {
    const auto decoder = VideoDecoder::open(file, index, {1}, nullptr);
    if (!decoder || track.edits.empty()) return;
    const CMTime start = track.edits.back().mediaStart;
    decoder->frameAt(CMTimeAdd(start, track.edits.back().target.duration), nullptr);
    decoder->frameAt(start, nullptr);
  }
  if (track.kind == MediaKind::audio) {
    const auto decoder = AudioDecoder::open(file, index, nullptr);
    std::vector<float> samples(2 * 2048);
    if (decoder) decoder->read(0, 2048, samples.data());
    if (decoder) decoder->read(30000, 2048, samples.data());
  }
}

}  // namespace
}  // namespace vidloom

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  const vidloom::MemoryFile memory(bytes, size);
  const auto file = vidloom::MediaFile::open(memory.path(), vidloom::fuzzingLimits(), nullptr);
  if (!file) return 0;
  for (size_t i = 0; i < file->tracks().size(); ++i) vidloom::readTrack(file, static_cast<int>(i));
  return 0;
}
