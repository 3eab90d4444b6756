#include "vidloom/platform/ffmpeg/PacketScan.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/packet.h>
#include <libavcodec/vorbis_parser.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

namespace vidloom {

namespace {

constexpr int64_t kPacketsPerMark = 16;
constexpr int64_t kLongestPacketSeconds = 3600;

/// The samples that packets of Vorbis give: how many is written in them, and the time stamps of few containers tell exactly.
class VorbisCounter {
 public:
  explicit VorbisCounter(const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    if (codec.codec_id == AV_CODEC_ID_VORBIS) parser_.reset(av_vorbis_parse_init(codec.extradata, codec.extradata_size));
    longestStep_ = av_rescale_q(kLongestStepMs, {1, 1000}, stream.time_base);
  }

  void add(const AVPacket& packet) {
    if (!parser_) return;
    const int frames = av_vorbis_parse_frame(parser_.get(), packet.data, packet.size);
    if (hasFirst_ && frames > 0) frames_ += frames;  // the first packet gives no sound
    if (hasFirst_ && packet.pts != AV_NOPTS_VALUE && packet.pts - previousPts_ > longestStep_) hasHoles_ = true;
    if (packet.pts != AV_NOPTS_VALUE) previousPts_ = packet.pts;
    hasFirst_ = true;
  }

  int64_t frames() const { return hasHoles_ ? 0 : frames_; }

 private:
  static constexpr int kLongestStepMs = 250;  // more than any packet lasts at usual rates
  struct Deleter {
    void operator()(AVVorbisParseContext* parser) const { av_vorbis_parse_free(&parser); }
  };
  std::unique_ptr<AVVorbisParseContext, Deleter> parser_;
  int64_t frames_ = 0, previousPts_ = 0, longestStep_ = 0;
  bool hasFirst_ = false, hasHoles_ = false;
};

}  // namespace

/// Collects one stream.
class PacketScan::Stream {
 public:
  Stream(const AVStream& stream, bool durationsAreTrimmed, bool countsSamples, ScannedStream& result)
      : stream_(stream),
        isSound_(stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO),
        frameBits_(isSound_ ? av_get_exact_bits_per_sample(stream.codecpar->codec_id) * stream.codecpar->ch_layout.nb_channels : 0),
        durationsAreTrimmed_(durationsAreTrimmed),
        countsSamples_(countsSamples),
        result_(result),
        counter_(stream) {}

  void add(AVPacket& packet) {
    note(packet);
    if (!isSound_) return;
    counter_.add(packet);
    if (!result_.lastPacket) result_.lastPacket.reset(av_packet_alloc());
    if (!result_.lastPacket) return;
    av_packet_unref(result_.lastPacket.get());
    av_packet_move_ref(result_.lastPacket.get(), &packet);
  }

  void note(const AVPacket& packet) {
    const int64_t pts = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    noteSkips(packet);
    result_.bytes += packet.size;
    if (result_.times.sampleCount == 0) result_.firstBytes = packet.size;
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
    if (previousPts_ && pts > *previousPts_) step_ = pts - *previousPts_;
    if (result_.times.sampleCount == 1) result_.firstStep = step_;
    if (!result_.hasJumped) {
      ++result_.headCount;
      result_.headTicks = pts - result_.times.firstPts;
    }
    previousPts_ = pts;
    if (stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) addPicture(packet, pts);
    if (isSound_ && times.sampleCount % kPacketsPerMark == 0 && packet.pos >= 0) {
      result_.marks.push_back({pts, packet.pos});
    }
    ++times.sampleCount;
  }

  void jump() {
    std::sort(recent_.begin(), recent_.end());
    takeDeltas(recent_.size() - std::min(recent_.size(), kDeepestReordering));
    recent_.clear();
    hasPrevious_ = false;
    unsureSteps_ = kDeepestReordering;
    previousPts_.reset();
    result_.hasJumped = true;
  }

  void finish() {
    SampleTimes& times = result_.times;
    times.reorderDepth = reordering_.depth();
    finishDeltas();
    if (!result_.hasJumped) result_.countedFrames = counter_.frames();
    if (result_.lastDuration == 0 && frameBits_ == 0) {
      result_.lastDuration = times.shortestDelta > 0 ? times.shortestDelta : step_;
      times.endPts += result_.lastDuration;
    }
    times.durationTicks = times.endPts - times.firstPts;
    if (result_.hasJumped) estimateWhole();
    times.allAreKeyFrames = static_cast<int64_t>(times.keyFrames.size()) == times.sampleCount;
    std::stable_sort(times.keyFrames.begin(), times.keyFrames.end(),
                     [](const KeyFrame& a, const KeyFrame& b) { return a.pts < b.pts; });
  }

 private:
  void estimateWhole() {
    SampleTimes& times = result_.times;
    times.keyFrames.clear();
    if (shownTicks_ > 0) times.sampleCount = av_rescale(times.durationTicks, shownSteps_, shownTicks_);
  }

  int64_t durationOf(const AVPacket& packet) const {
    const bool isAbsurd = packet.duration > av_rescale_q(kLongestPacketSeconds, {1, 1}, stream_.time_base);
    const int sampleRate = stream_.codecpar->sample_rate;
    if (packet.duration > 0 && !isAbsurd)
      return countsSamples_ && sampleRate > 0 ? av_rescale(packet.duration, sampleRate, stream_.time_base.den) : packet.duration;
    const AVRational rate = stream_.avg_frame_rate.num > 0 ? stream_.avg_frame_rate : stream_.r_frame_rate;
    if (stream_.codecpar->codec_type != AVMEDIA_TYPE_VIDEO || rate.num <= 0) return 0;
    return av_rescale_q(1, av_inv_q(rate), stream_.time_base);
  }

  void noteUntimed(const AVPacket& packet) {
    if (!result_.hasTimes) return;
    const int64_t duration = durationOf(packet);
    result_.times.endPts += duration > 0 || frameBits_ > 0 ? duration : step_;
    ++result_.times.sampleCount;
  }

  void noteSkips(const AVPacket& packet) {
    size_t bytes = 0;
    const uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &bytes);
    if (!data || bytes < 10) return;
    if (result_.times.sampleCount == 0) result_.skipFrames = static_cast<int>(std::min<uint32_t>(AV_RL32(data), 1 << 20));
    if (!durationsAreTrimmed_) result_.discardFrames = static_cast<int>(std::min<uint32_t>(AV_RL32(data + 4), 1 << 20));
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
  }

  void takeDeltas(size_t count) {
    SampleTimes& times = result_.times;
    for (size_t i = 0; i < count; ++i) {
      const int64_t delta = recent_[i] - previousShown_;
      if (unsureSteps_ > 0) {
        --unsureSteps_;
      } else if (hasPrevious_ && delta > 0) {
        times.shortestDelta = times.longestDelta == 0 ? delta : std::min(times.shortestDelta, delta);
        times.longestDelta = std::max(times.longestDelta, delta);
        shownTicks_ += delta;
        ++shownSteps_;
      }
      previousShown_ = recent_[i];
      hasPrevious_ = true;
    }
    recent_.erase(recent_.begin(), recent_.begin() + static_cast<ptrdiff_t>(count));
  }

  static constexpr size_t kSortWindow = 64, kDeepestReordering = 16;
  const AVStream& stream_;
  bool isSound_;
  int frameBits_;             ///< of uncompressed sound: of all channels together
  bool durationsAreTrimmed_;  ///< the last packet's duration is that of the samples that are kept
  bool countsSamples_;        ///< times count samples, durations do not
  ScannedStream& result_;
  VorbisCounter counter_;
  ReorderDepth reordering_;
  std::vector<int64_t> recent_;
  int64_t previousShown_ = 0;
  bool hasPrevious_ = false;
  size_t unsureSteps_ = 0;                   ///< beside a jump, some of the pictures between are missing
  int64_t shownTicks_ = 0, shownSteps_ = 0;  ///< from picture to picture, what was left out not counted
  std::optional<int64_t> previousPts_;
  int64_t step_ = 0;  ///< between the last two time stamps
};

PacketScan::PacketScan(const AVFormatContext& context, std::map<int, ScannedStream>& streams)
    : context_(context), results_(streams) {}

PacketScan::~PacketScan() = default;

bool PacketScan::add(AVPacket& packet, int64_t maxSamples) {
  const int index = packet.stream_index;
  auto found = streams_.find(index);
  if (found == streams_.end())
    found = streams_.try_emplace(index, *context_.streams[index], isContainer("ogg"), isContainer("flac"), results_[index]).first;
  found->second.add(packet);
  return results_[index].times.sampleCount <= maxSamples;
}

bool PacketScan::isContainer(const char* name) const { return std::string_view(context_.iformat->name) == name; }

bool PacketScan::sawAllAtTheEnd() const {
  return std::all_of(results_.begin(), results_.end(), [](const auto& item) {
    return !item.second.hasJumped || item.second.times.sampleCount > item.second.headCount;
  });
}

void PacketScan::jump() {
  for (auto& [index, stream] : streams_) stream.jump();
}

void PacketScan::finish() {
  for (auto& [index, stream] : streams_) stream.finish();
}

}  // namespace vidloom
