#include "vidloom/platform/ffmpeg/MovieIndex.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "vidloom/platform/ffmpeg/BoxWriter.h"

namespace vidloom {

namespace {

constexpr int64_t maximumMovieTimescale = std::numeric_limits<int32_t>::max();
constexpr uint32_t languageUndetermined = 0x55c4;

int64_t movieTimescale(const std::vector<MovieTrack>& tracks) {
  int64_t scale = 1;
  for (const MovieTrack& track : tracks) {
    // What the edits count in is often coarser than the track's ticks: 1/30 s and not 1/15360 s.
    int64_t step = track.timescale;
    for (const int64_t ticks : {track.delayTicks, track.presentedTicks}) step = std::gcd(step, ticks);
    const int64_t common = std::lcm(scale, track.timescale / step);
    if (common <= maximumMovieTimescale) scale = common;
  }
  constexpr int64_t usualTimescale = 600;
  const int64_t usual = std::lcm(scale, usualTimescale);
  return usual <= maximumMovieTimescale ? usual : scale;
}

int64_t toMovieTicks(int64_t ticks, const MovieTrack& track, int64_t scale) {
  return static_cast<int64_t>((static_cast<__int128>(ticks) * scale + track.timescale / 2) / track.timescale);
}

bool needs64Bits(int64_t value) { return value > std::numeric_limits<uint32_t>::max(); }

void writeWide(BoxWriter& box, bool wide, int64_t value) {
  if (wide) {
    box.u64(static_cast<uint64_t>(value));
  } else {
    box.u32(static_cast<uint64_t>(value));
  }
}

void writeUnityMatrix(BoxWriter& box) {
  for (const uint32_t entry : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) box.u32(entry);
}

/// Writes one track's boxes.
class TrackWriter {
 public:
  TrackWriter(BoxWriter& box, const MovieTrack& track, size_t trackIndex, int64_t movieScale)
      : box_(box), track_(track), trackIndex_(trackIndex), movieScale_(movieScale) {}

  void write(const std::vector<MovieChunk>& chunks, bool longOffsets) {
    box_.open("trak");
    writeHeader();
    writeEdits();
    box_.open("mdia");
    writeMediaHeader();
    writeHandler();
    box_.open("minf");
    writeMediaInformation();
    box_.open("stbl");
    writeDescription();
    writeTimes();
    writeSyncSamples();
    writePlaces(chunks, longOffsets);
    writeRollGroup();
    for (int level = 0; level < 4; ++level) box_.close();
  }

  int64_t endInMovie() const { return delayInMovie() + presentedInMovie(); }

 private:
  bool isVideo() const { return track_.kind == MovieTrack::Kind::video; }
  int64_t delayInMovie() const { return toMovieTicks(track_.delayTicks, track_, movieScale_); }
  int64_t presentedInMovie() const { return toMovieTicks(track_.presentedTicks, track_, movieScale_); }

  void writeHeader() {
    constexpr uint32_t enabledAndInMovie = 3;
    const bool wide = needs64Bits(endInMovie());
    box_.openFull("tkhd", wide ? 1 : 0, enabledAndInMovie);
    box_.zeros(wide ? 16 : 8);
    box_.u32(trackIndex_ + 1);
    box_.u32(0);
    writeWide(box_, wide, endInMovie());
    box_.zeros(8);
    box_.u16(0);
    box_.u16(isVideo() ? 0 : 1);
    box_.u16(isVideo() ? 0 : 0x0100);
    box_.u16(0);
    writeUnityMatrix(box_);
    box_.u32(static_cast<uint64_t>(track_.width) << 16);
    box_.u32(static_cast<uint64_t>(track_.height) << 16);
    box_.close();
  }

  void writeEdits() {
    const bool wide = needs64Bits(endInMovie()) || needs64Bits(track_.mediaStartTicks);
    box_.open("edts");
    box_.openFull("elst", wide ? 1 : 0, 0);
    box_.u32(track_.delayTicks > 0 ? 2 : 1);
    if (track_.delayTicks > 0) writeEdit(wide, delayInMovie(), -1);
    writeEdit(wide, presentedInMovie(), track_.mediaStartTicks);
    box_.close();
    box_.close();
  }

  void writeEdit(bool wide, int64_t durationMovieTicks, int64_t mediaTime) {
    writeWide(box_, wide, durationMovieTicks);
    writeWide(box_, wide, mediaTime);
    box_.u32(0x10000);
  }

  void writeMediaHeader() {
    int64_t total = 0;
    for (const MovieSample& sample : track_.samples) total += sample.durationTicks;
    const bool wide = needs64Bits(total);
    box_.openFull("mdhd", wide ? 1 : 0, 0);
    box_.zeros(wide ? 16 : 8);
    box_.u32(static_cast<uint64_t>(track_.timescale));
    writeWide(box_, wide, total);
    box_.u16(languageUndetermined);
    box_.u16(0);
    box_.close();
  }

  void writeHandler() {
    box_.openFull("hdlr", 0, 0);
    box_.u32(0);
    box_.text(isVideo() ? "vide" : "soun");
    box_.zeros(12);
    box_.text(isVideo() ? "Video" : "Sound");
    box_.u8(0);
    box_.close();
  }

  void writeMediaInformation() {
    if (isVideo()) {
      box_.openFull("vmhd", 0, 1);
      box_.zeros(8);
    } else {
      box_.openFull("smhd", 0, 0);
      box_.zeros(4);
    }
    box_.close();
    box_.open("dinf");
    box_.openFull("dref", 0, 0);
    box_.u32(1);
    constexpr uint32_t inThisFile = 1;
    box_.openFull("url ", 0, inThisFile);
    box_.close();
    box_.close();
    box_.close();
  }

  void writeDescription() {
    box_.openFull("stsd", 0, 0);
    box_.u32(1);
    box_.bytes(track_.sampleEntry);
    box_.close();
  }

  /// A table of (count, value) over runs of equal values.
  template <typename Value>
  void writeRuns(std::string_view name, Value value) {
    box_.openFull(name, 0, 0);
    std::vector<std::pair<uint32_t, uint32_t>> runs;
    for (const MovieSample& sample : track_.samples) {
      const auto entry = static_cast<uint32_t>(value(sample));
      if (runs.empty() || runs.back().second != entry) runs.emplace_back(0, entry);
      ++runs.back().first;
    }
    box_.u32(runs.size());
    for (const auto& [count, entry] : runs) {
      box_.u32(count);
      box_.u32(entry);
    }
    box_.close();
  }

  void writeTimes() {
    writeRuns("stts", [](const MovieSample& sample) { return sample.durationTicks; });
    const bool reordered =
        std::any_of(track_.samples.begin(), track_.samples.end(), [](const MovieSample& s) { return s.presentationOffset != 0; });
    if (reordered) writeRuns("ctts", [](const MovieSample& sample) { return sample.presentationOffset; });
  }

  void writeSyncSamples() {
    const auto syncCount = std::count_if(track_.samples.begin(), track_.samples.end(), [](const MovieSample& s) { return s.sync; });
    if (static_cast<size_t>(syncCount) == track_.samples.size()) return;
    box_.openFull("stss", 0, 0);
    box_.u32(static_cast<uint64_t>(syncCount));
    for (size_t i = 0; i < track_.samples.size(); ++i) {
      if (track_.samples[i].sync) box_.u32(i + 1);
    }
    box_.close();
  }

  void writePlaces(const std::vector<MovieChunk>& chunks, bool longOffsets) {
    std::vector<const MovieChunk*> own;
    for (const MovieChunk& chunk : chunks) {
      if (chunk.trackIndex == trackIndex_) own.push_back(&chunk);
    }
    writeChunkLengths(own);
    box_.openFull("stsz", 0, 0);
    box_.u32(0);
    box_.u32(track_.samples.size());
    for (const MovieSample& sample : track_.samples) box_.u32(sample.sizeBytes);
    box_.close();
    box_.openFull(longOffsets ? "co64" : "stco", 0, 0);
    box_.u32(own.size());
    for (const MovieChunk* chunk : own) writeWide(box_, longOffsets, static_cast<int64_t>(chunk->fileOffset));
    box_.close();
  }

  void writeChunkLengths(const std::vector<const MovieChunk*>& own) {
    std::vector<size_t> firsts;
    for (size_t i = 0; i < own.size(); ++i) {
      if (i == 0 || own[i]->sampleCount != own[i - 1]->sampleCount) firsts.push_back(i);
    }
    box_.openFull("stsc", 0, 0);
    box_.u32(firsts.size());
    for (const size_t first : firsts) {
      box_.u32(first + 1);
      box_.u32(own[first]->sampleCount);
      box_.u32(1);
    }
    box_.close();
  }

  void writeRollGroup() {
    if (track_.rollDistance == 0) return;
    constexpr uint32_t entryBytes = 2;
    box_.openFull("sgpd", 1, 0);
    box_.text("roll");
    box_.u32(entryBytes);
    box_.u32(1);
    box_.u16(static_cast<uint16_t>(-track_.rollDistance));
    box_.close();
    box_.openFull("sbgp", 0, 0);
    box_.text("roll");
    box_.u32(1);
    box_.u32(track_.samples.size());
    box_.u32(1);
    box_.close();
  }

  BoxWriter& box_;
  const MovieTrack& track_;
  size_t trackIndex_;
  int64_t movieScale_;
};

void writeMovieHeader(BoxWriter& box, int64_t scale, int64_t duration, size_t nextTrackNumber) {
  const bool wide = needs64Bits(duration);
  box.openFull("mvhd", wide ? 1 : 0, 0);
  box.zeros(wide ? 16 : 8);
  box.u32(static_cast<uint64_t>(scale));
  writeWide(box, wide, duration);
  box.u32(0x10000);
  box.u16(0x0100);
  box.zeros(10);
  writeUnityMatrix(box);
  box.zeros(24);
  box.u32(nextTrackNumber);
  box.close();
}

/// Cuts one track into chunks and notes the movie time in seconds at which each begins.
void appendChunks(const MovieTrack& track, size_t trackIndex, std::vector<std::pair<double, MovieChunk>>& timed) {
  const int64_t chunkTicks = track.timescale / 2;
  const double scale = static_cast<double>(track.timescale);
  int64_t time = track.delayTicks - track.mediaStartTicks;
  int64_t chunkEnd = std::numeric_limits<int64_t>::min();
  uint64_t offset = 0;
  for (const MovieSample& sample : track.samples) {
    if (time >= chunkEnd) {
      timed.push_back({static_cast<double>(time) / scale, {trackIndex, 0, 0, offset, 0}});
      chunkEnd = time + chunkTicks;
    }
    MovieChunk& chunk = timed.back().second;
    ++chunk.sampleCount;
    chunk.byteCount += sample.sizeBytes;
    offset += sample.sizeBytes;
    time += sample.durationTicks;
  }
}

}  // namespace

std::vector<MovieChunk> MovieIndex::interleave(const std::vector<MovieTrack>& tracks) {
  std::vector<std::pair<double, MovieChunk>> timed;
  for (size_t i = 0; i < tracks.size(); ++i) appendChunks(tracks[i], i, timed);
  std::stable_sort(timed.begin(), timed.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
  std::vector<MovieChunk> chunks;
  chunks.reserve(timed.size());
  for (const auto& entry : timed) chunks.push_back(entry.second);
  return chunks;
}

std::vector<uint8_t> MovieIndex::build(const std::vector<MovieTrack>& tracks, const std::vector<MovieChunk>& chunks,
                                       bool longOffsets) {
  BoxWriter box;
  const int64_t scale = movieTimescale(tracks);
  int64_t duration = 0;
  for (size_t i = 0; i < tracks.size(); ++i) duration = std::max(duration, TrackWriter(box, tracks[i], i, scale).endInMovie());
  box.open("moov");
  writeMovieHeader(box, scale, duration, tracks.size() + 1);
  for (size_t i = 0; i < tracks.size(); ++i) TrackWriter(box, tracks[i], i, scale).write(chunks, longOffsets);
  box.close();
  return box.data();
}

}  // namespace vidloom
