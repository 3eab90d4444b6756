#include "vidloom/platform/ffmpeg/MovieMuxer.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "vidloom/platform/ffmpeg/BoxWriter.h"
#include "vidloom/platform/ffmpeg/MovieIndex.h"
#include "vidloom/platform/ffmpeg/PacketSpool.h"

namespace vidloom {

namespace {

constexpr uint64_t shortHeaderBytes = 8;
constexpr uint64_t longHeaderBytes = 16;

void writeFileType(BoxWriter& box) {
  box.open("ftyp");
  box.text("mp42");
  box.u32(1);
  box.text("mp41mp42isom");
  box.close();
}

/// Everything before the samples, with the chunks' places filled in.
std::vector<uint8_t> buildHead(const std::vector<MovieTrack>& tracks, std::vector<MovieChunk>& chunks) {
  uint64_t payloadBytes = 0;
  for (const MovieChunk& chunk : chunks) payloadBytes += chunk.byteCount;
  BoxWriter head;
  writeFileType(head);
  const size_t shortIndexBytes = MovieIndex::build(tracks, chunks, false).size();
  const bool isLong = head.data().size() + shortIndexBytes + longHeaderBytes + payloadBytes > std::numeric_limits<uint32_t>::max();
  const size_t indexBytes = isLong ? MovieIndex::build(tracks, chunks, true).size() : shortIndexBytes;
  uint64_t offset = head.data().size() + indexBytes + (isLong ? longHeaderBytes : shortHeaderBytes);
  for (MovieChunk& chunk : chunks) {
    chunk.fileOffset = offset;
    offset += chunk.byteCount;
  }
  head.bytes(MovieIndex::build(tracks, chunks, isLong));
  head.u32(isLong ? 1 : payloadBytes + shortHeaderBytes);
  head.text("mdat");
  if (isLong) head.u64(payloadBytes + longHeaderBytes);
  return head.data();
}

int copyChunk(const MovieChunk& chunk, PacketSpool& spool, ScratchFile& file, std::vector<uint8_t>& buffer) {
  for (uint64_t done = 0; done < chunk.byteCount;) {
    const std::span<uint8_t> part(buffer.data(), static_cast<size_t>(std::min<uint64_t>(buffer.size(), chunk.byteCount - done)));
    if (const int errnoValue = spool.read(chunk.spoolOffset + done, part)) return errnoValue;
    if (const int errnoValue = file.append(part)) return errnoValue;
    done += part.size();
  }
  spool.discardBefore(chunk.spoolOffset + chunk.byteCount);
  return 0;
}

}  // namespace

int MovieMuxer::write(const std::vector<MovieTrack>& tracks, ScratchFile& file, const std::function<bool()>& isCancelled) {
  std::vector<MovieChunk> chunks = MovieIndex::interleave(tracks);
  if (const int errnoValue = file.append(buildHead(tracks, chunks))) return errnoValue;
  constexpr size_t bufferBytes = size_t{512} << 10;
  std::vector<uint8_t> buffer(bufferBytes);
  for (const MovieChunk& chunk : chunks) {
    if (isCancelled()) return ECANCELED;
    if (const int errnoValue = copyChunk(chunk, *tracks[chunk.trackIndex].spool, file, buffer)) return errnoValue;
  }
  return 0;
}

}  // namespace vidloom
