#include "vidloom/platform/ffmpeg/PacketScan.h"

#include <algorithm>
#include <limits>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

namespace vidloom {

namespace {

constexpr int kMostErrorsInARow = 100;
constexpr int64_t kPacketsPerMark = 16;

/// Collects one stream.
class StreamScan {
 public:
  StreamScan(const AVStream& stream, ScannedStream& result) : stream_(stream), result_(result) {}

  void add(const AVPacket& packet) {
    const int64_t pts = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    noteSkips(packet);
    if (pts == AV_NOPTS_VALUE) return noteUntimed(packet);
    SampleTimes& times = result_.times;
    const int64_t end = pts + durationOf(packet);
    if (!result_.hasTimes) {
      result_.hasTimes = true;
      times.firstPts = pts;
      times.endPts = end;
      result_.firstDts = packet.dts != AV_NOPTS_VALUE ? packet.dts : pts;
    }
    times.firstPts = std::min(times.firstPts, pts);
    if (end >= times.endPts) result_.lastDuration = end - pts;
    times.endPts = std::max(times.endPts, end);
    noteDuration(packet.duration);
    if (stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) addPicture(packet, pts);
    if (stream_.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && times.sampleCount % kPacketsPerMark == 0 && packet.pos >= 0) {
      result_.marks.push_back({pts, packet.pos});
    }
    ++times.sampleCount;
  }

  void finish() {
    SampleTimes& times = result_.times;
    times.reorderDepth = reordering_.depth();
    result_.packetDuration = sameDuration_ ? firstDuration_ : 0;
    finishDeltas();
    times.durationTicks = times.endPts - times.firstPts;
    times.allAreKeyFrames = static_cast<int64_t>(times.keyFrames.size()) == times.sampleCount;
    std::stable_sort(times.keyFrames.begin(), times.keyFrames.end(),
                     [](const KeyFrame& a, const KeyFrame& b) { return a.pts < b.pts; });
  }

 private:
  int64_t durationOf(const AVPacket& packet) const {
    if (packet.duration > 0) return packet.duration;
    const AVRational rate = stream_.avg_frame_rate.num > 0 ? stream_.avg_frame_rate : stream_.r_frame_rate;
    if (stream_.codecpar->codec_type != AVMEDIA_TYPE_VIDEO || rate.num <= 0) return 0;
    return av_rescale_q(1, av_inv_q(rate), stream_.time_base);
  }

  void noteUntimed(const AVPacket& packet) {
    if (result_.hasTimes) result_.times.endPts += durationOf(packet);
    ++result_.times.sampleCount;
  }

  void noteSkips(const AVPacket& packet) {
    size_t bytes = 0;
    const uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &bytes);
    if (!data || bytes < 10) return;
    if (result_.times.sampleCount == 0) result_.skipFrames = static_cast<int>(std::min<uint32_t>(AV_RL32(data), 1 << 20));
    result_.discardFrames = static_cast<int>(std::min<uint32_t>(AV_RL32(data + 4), 1 << 20));
  }

  void noteDuration(int64_t duration) {
    if (firstDuration_ == 0) firstDuration_ = duration;
    sameDuration_ = sameDuration_ && (pendingDuration_ == 0 || pendingDuration_ == firstDuration_);
    pendingDuration_ = duration;
  }

  void addPicture(const AVPacket& packet, int64_t pts) {
    reordering_.add(pts);
    if ((packet.flags & AV_PKT_FLAG_KEY) != 0) {
      result_.times.keyFrames.push_back({pts, packet.dts != AV_NOPTS_VALUE ? packet.dts : pts, packet.pos});
    }
    recent_.push_back(pts);
    if (recent_.size() < kSortWindow) return;
    std::sort(recent_.begin(), recent_.end());
    takeDeltas(recent_.size() / 2);
  }

  void finishDeltas() {
    std::sort(recent_.begin(), recent_.end());
    takeDeltas(recent_.size());
    if (result_.times.longestDelta == 0) result_.times.shortestDelta = result_.times.longestDelta = result_.lastDuration;
  }

  void takeDeltas(size_t count) {
    SampleTimes& times = result_.times;
    for (size_t i = 0; i < count; ++i) {
      const int64_t delta = recent_[i] - previousShown_;
      if (hasPrevious_ && delta > 0) {
        times.shortestDelta = times.longestDelta == 0 ? delta : std::min(times.shortestDelta, delta);
        times.longestDelta = std::max(times.longestDelta, delta);
      }
      previousShown_ = recent_[i];
      hasPrevious_ = true;
    }
    recent_.erase(recent_.begin(), recent_.begin() + static_cast<ptrdiff_t>(count));
  }

  static constexpr size_t kSortWindow = 64;
  const AVStream& stream_;
  ScannedStream& result_;
  ReorderDepth reordering_;
  std::vector<int64_t> recent_;
  int64_t previousShown_ = 0;
  bool hasPrevious_ = false;
  int64_t firstDuration_ = 0, pendingDuration_ = 0;
  bool sameDuration_ = true;
};

}  // namespace

bool scanPackets(Demuxer& demuxer, int64_t maxSamples, std::map<int, ScannedStream>& streams) {
  std::map<int, StreamScan> scans;
  AvPacketPointer packet(av_packet_alloc());
  int errors = 0;
  while (packet && errors < kMostErrorsInARow) {
    const int result = demuxer.read(*packet);
    if (result == AVERROR_EXIT) return false;
    if (result == AVERROR_EOF) break;
    errors = result < 0 ? errors + 1 : 0;
    if (result < 0) continue;
    const AVStream& stream = *demuxer.context().streams[packet->stream_index];
    auto scan = scans.find(stream.index);
    if (scan == scans.end()) scan = scans.try_emplace(stream.index, stream, streams[stream.index]).first;
    scan->second.add(*packet);
    av_packet_unref(packet.get());
    if (streams[stream.index].times.sampleCount > maxSamples) return false;
  }
  for (auto& [index, scan] : scans) scan.finish();
  return true;
}

}  // namespace vidloom
