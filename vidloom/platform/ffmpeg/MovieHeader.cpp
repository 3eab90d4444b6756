#include "vidloom/platform/ffmpeg/MovieHeader.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace vidloom {

namespace {

constexpr int64_t kLargestIndexBytes = int64_t{512} << 20;
constexpr int64_t kLargestFragmentBytes = int64_t{16} << 20;
constexpr int kMostTopLevelBoxes = 1'000'000;
constexpr size_t kMostEdits = 100'000;
constexpr size_t kVideoEntryBytes = 78;  // of a sample description, before the boxes inside it

struct Place {
  int64_t offset = 0, size = 0;
};

bool readAll(const SourceFile& file, int64_t offset, uint8_t* bytes, size_t count) {
  for (size_t done = 0; done < count;) {
    const int64_t got = file.readAt(offset + static_cast<int64_t>(done), bytes + done, count - done);
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

/// Walks the top level of the file to the first box of the type.
std::optional<Place> findTopLevel(const SourceFile& file, uint32_t type) {
  int64_t offset = 0;
  for (int count = 0; count < kMostTopLevelBoxes && offset + 8 <= file.size(); ++count) {
    uint8_t head[16] = {};
    const size_t available = static_cast<size_t>(std::min<int64_t>(sizeof head, file.size() - offset));
    if (!readAll(file, offset, head, available)) return std::nullopt;
    ByteReader reader(ByteSpan(head, available));
    uint64_t size = reader.u32();
    const uint32_t found = reader.u32();
    const int64_t headerBytes = size == 1 ? 16 : 8;
    if (size == 1) size = reader.u64();
    const auto left = static_cast<uint64_t>(file.size() - offset);
    if (size == 0 || size > left) size = left;
    if (static_cast<int64_t>(size) < headerBytes) return std::nullopt;
    if (found == type) return Place{offset + headerBytes, static_cast<int64_t>(size) - headerBytes};
    offset += static_cast<int64_t>(size);
  }
  return std::nullopt;
}

/// A matrix that is missing or sends everything to one point counts as none.
CGAffineTransform readMatrix(ByteReader& reader) {
  double m[9] = {};
  for (double& entry : m) entry = reader.i32() / 65536.0;
  const bool isUsable = !reader.isExhausted() && (m[0] != 0 || m[1] != 0) && (m[3] != 0 || m[4] != 0);
  return isUsable ? CGAffineTransformMake(m[0], m[1], m[3], m[4], m[6], m[7]) : CGAffineTransformIdentity;
}

void readTrackHeader(ByteSpan body, MovieHeaderTrack& track) {
  ByteReader reader(body);
  const bool wide = reader.u8() != 0;
  track.enabled = (reader.u24() & 1) != 0;
  reader.skip(wide ? 16 : 8);
  track.trackID = reader.u32();
  reader.skip(4 + (wide ? 8 : 4) + 16);
  track.transform = readMatrix(reader);
}

/// Unusable scales count as one tick a second, as libav's demuxer has it.
int32_t usableScale(uint32_t scale) { return scale == 0 || scale > 0x7fffffff ? 1 : static_cast<int32_t>(scale); }

int32_t headerTimescale(ByteSpan body) {
  ByteReader reader(body);
  const bool wide = reader.u8() != 0;
  reader.skip(3 + (wide ? 16 : 8));
  return usableScale(reader.u32());
}

CGAffineTransform movieTransform(ByteSpan body) {
  ByteReader reader(body);
  const bool wide = reader.u8() != 0;
  reader.skip(3 + (wide ? 28 : 16) + 16);
  return readMatrix(reader);
}

/// The largest negative composition offset in a fragment's run of samples, as a positive number.
int64_t runShift(ByteSpan body) {
  constexpr uint32_t dataOffset = 0x1, firstFlags = 0x4, durations = 0x100, sizes = 0x200, flags = 0x400, offsets = 0x800;
  ByteReader reader(body);
  reader.skip(1);
  const uint32_t present = reader.u24();
  uint32_t count = reader.u32();
  if ((present & offsets) == 0) return 0;
  reader.skip(((present & dataOffset) != 0 ? 4 : 0) + ((present & firstFlags) != 0 ? 4 : 0));
  size_t before = 0;
  for (const uint32_t field : {durations, sizes, flags}) before += (present & field) != 0 ? 4 : 0;
  int64_t shift = 0;
  for (; count > 0 && reader.remaining() >= before + 4; --count) {
    reader.skip(before);
    const int64_t offset = reader.i32();
    if (offset != std::numeric_limits<int32_t>::min()) shift = std::max(shift, -offset);
  }
  return shift;
}

std::vector<MovieHeaderEdit> readEdits(ByteSpan body) {
  ByteReader reader(body);
  const bool wide = reader.u8() != 0;
  reader.skip(3);
  std::vector<MovieHeaderEdit> edits;
  for (uint32_t entries = reader.u32(); entries > 0 && edits.size() < kMostEdits; --entries) {
    MovieHeaderEdit edit;
    edit.duration = wide ? reader.u64() : reader.u32();
    edit.mediaTime = wide ? static_cast<int64_t>(reader.u64()) : reader.i32();
    reader.skip(4);
    if (reader.isExhausted()) break;
    edits.push_back(edit);
  }
  return edits;
}

void readSampleDescription(ByteSpan body, MovieHeaderTrack& track) {
  if (body.size() < 8) return;
  BoxReader entries(body.subspan(8));
  Box entry;
  if (!entries.next(entry)) return;
  track.format = entry.type;
  if (track.handler != boxType("vide") || entry.body.size() <= kVideoEntryBytes) return;
  const Box aspect = BoxReader::find(entry.body.subspan(kVideoEntryBytes), boxType("pasp"));
  ByteReader reader(aspect.body);
  track.pixelAspectWidth = reader.u32();
  track.pixelAspectHeight = reader.u32();
}

/// Of a table that lists the samples one by one; 0 otherwise.
int64_t listedSamples(ByteSpan sizes) {
  ByteReader reader(sizes);
  reader.skip(4);
  return reader.u32() == 0 ? reader.u32() : 0;
}

/// The number of samples, and how many bytes they must have at the least.
bool samplesFit(ByteSpan sizes, bool isSound, int64_t maxSamples, int64_t fileSize) {
  ByteReader reader(sizes);
  reader.skip(4);
  const uint32_t size = reader.u32();
  const int64_t count = reader.u32();
  if (isSound && size != 0) return true;  // uncompressed sound counts every frame of it as a sample and lists none
  return count <= maxSamples && (size == 0 || count <= std::max<int64_t>(fileSize, 1 << 20));
}

}  // namespace

std::optional<MovieHeader> MovieHeader::read(const SourceFile& file, const MediaLimits& limits, std::string* problem) {
  const std::optional<Place> place = findTopLevel(file, boxType("moov"));
  if (!place || place->size > kLargestIndexBytes) {
    *problem = place ? "its index is larger than 512 MB" : "its index ('moov') is missing or cannot be reached";
    return std::nullopt;
  }
  const auto size = static_cast<size_t>(place->size);
  const auto bytes = std::make_unique<uint8_t[]>(size);
  MovieHeader header;
  header.fileSize_ = file.size();
  if (!readAll(file, place->offset, bytes.get(), size)) {
    *problem = "its index cannot be read";
    return std::nullopt;
  }
  if (!header.readMovie(ByteSpan(bytes.get(), size), limits, problem)) return std::nullopt;
  if (header.fragmented_) header.readFirstFragment(file);
  return header;
}

bool MovieHeader::readMovie(ByteSpan movie, const MediaLimits& limits, std::string* problem) {
  const ByteSpan movieHeader = BoxReader::find(movie, boxType("mvhd")).body;
  timescale_ = headerTimescale(movieHeader);
  transform_ = movieTransform(movieHeader);
  BoxReader boxes(movie);
  for (Box box; boxes.next(box);) {
    if (box.type == boxType("mvex")) fragmented_ = true;
    if (box.type != boxType("trak")) continue;
    if (tracks_.size() >= static_cast<size_t>(limits.maxTracks)) {
      *problem = "it has more than " + std::to_string(limits.maxTracks) + " tracks";
      return false;
    }
    if (!readTrack(box.body, limits, problem)) return false;
  }
  return true;
}

void MovieHeader::readFirstFragment(const SourceFile& file) {
  const std::optional<Place> place = findTopLevel(file, boxType("moof"));
  if (!place || place->size > kLargestFragmentBytes) return;
  std::vector<uint8_t> bytes(static_cast<size_t>(place->size));
  if (!readAll(file, place->offset, bytes.data(), bytes.size())) return;
  BoxReader boxes(bytes);
  for (Box box; boxes.next(box);) {
    if (box.type != boxType("traf")) continue;
    ByteReader header(BoxReader::find(box.body, boxType("tfhd")).body);
    header.skip(4);
    const uint32_t trackID = header.u32();
    BoxReader runs(box.body);
    for (Box run; runs.next(run);) {
      if (run.type != boxType("trun")) continue;
      for (MovieHeaderTrack& track : tracks_) {
        if (track.trackID == trackID) track.demuxerShift = std::max(track.demuxerShift, runShift(run.body));
      }
    }
  }
}

bool MovieHeader::readTrack(ByteSpan body, const MediaLimits& limits, std::string* problem) {
  MovieHeaderTrack track;
  readTrackHeader(BoxReader::find(body, boxType("tkhd")).body, track);
  track.transform = CGAffineTransformConcat(track.transform, transform_);
  const ByteSpan media = BoxReader::find(body, boxType("mdia")).body;
  track.timescale = headerTimescale(BoxReader::find(media, boxType("mdhd")).body);
  ByteReader handler(BoxReader::find(media, boxType("hdlr")).body);
  handler.skip(8);
  track.handler = handler.u32();
  track.edits = readEdits(BoxReader::find(BoxReader::find(body, boxType("edts")).body, boxType("elst")).body);
  const ByteSpan table = BoxReader::find(BoxReader::find(media, boxType("minf")).body, boxType("stbl")).body;
  readSampleDescription(BoxReader::find(table, boxType("stsd")).body, track);
  SampleTables tables;
  tables.timeToSample = BoxReader::find(table, boxType("stts")).body;
  tables.compositionOffset = BoxReader::find(table, boxType("ctts")).body;
  const Box sync = BoxReader::find(table, boxType("stss"));
  tables.syncSamples = sync.body;
  tables.hasSyncSamples = sync.type == boxType("stss");
  const bool isSound = track.handler != boxType("vide");
  const ByteSpan sizes = BoxReader::find(table, boxType("stsz")).body;
  if (isSound) tables.sampleCount = listedSamples(sizes);
  const bool fits = samplesFit(sizes, isSound, limits.maxSamplesPerTrack, fileSize_) &&
                    readSampleTimes(tables, limits.maxSamplesPerTrack, !isSound, track.times);
  if (!fits) {
    *problem = "the sample table of track " + std::to_string(track.trackID) + " is too large";
    return false;
  }
  tracks_.push_back(std::move(track));
  return true;
}

}  // namespace vidloom
