#include "vidloom/platform/ffmpeg/PacketSource.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

namespace vidloom {

namespace {

constexpr int kMostErrorsInARow = 100;

}  // namespace

std::unique_ptr<PacketSource> PacketSource::open(std::shared_ptr<const OpenedMediaFile> file, int trackIndex,
                                                 std::optional<NSError>* error) {
  auto demuxer = file->openDemuxer(error);
  if (!demuxer) return nullptr;
  return std::unique_ptr<PacketSource>(new PacketSource(std::move(file), trackIndex, std::move(demuxer)));
}

PacketSource::PacketSource(std::shared_ptr<const OpenedMediaFile> file, int trackIndex, std::unique_ptr<Demuxer> demuxer)
    : file_(std::move(file)),
      source_(file_->source(trackIndex)),
      track_(file_->tracks()[static_cast<size_t>(trackIndex)]),
      demuxer_(std::move(demuxer)) {
  prepareDemuxer();
}

void PacketSource::prepareDemuxer() {
  demuxer_->setCancelFlag(&cancelled_);
  AVFormatContext& context = demuxer_->context();
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    context.streams[i]->discard = static_cast<int>(i) == track_.streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
}

int PacketSource::next(AVPacket& packet) {
  const AvLogScope scope(file_->logName(), AvLogScope::Mode::drop);  // its failures are told to the caller
  fresh_ = false;
  while (true) {
    const int result = demuxer_->read(packet);
    if (result == AVERROR_EXIT || isCancelled()) return AVERROR_EXIT;
    if (result < 0) return result == AVERROR_EOF || ++errorsInARow_ > kMostErrorsInARow ? AVERROR_EOF : result;
    errorsInARow_ = 0;
    if (packet.stream_index == track_.streamIndex) break;
    av_packet_unref(&packet);
  }
  forgetUnsureTime(packet);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts = mediaTicks(source_, packet.pts, packet.dts);
  return 0;
}

/// After a jump the Ogg demuxer counts back from the first page's end with lengths of packets that it does not know yet; from the
/// next page on its times are those of the file.
void PacketSource::forgetUnsureTime(AVPacket& packet) {
  if (!isUnsure_) return;
  if (!unsurePage_) unsurePage_ = packet.pos;
  isUnsure_ = packet.pos == *unsurePage_;
  if (isUnsure_) packet.pts = packet.dts = AV_NOPTS_VALUE;
}

bool PacketSource::seek(int stream, int64_t target, int flags) {
  errorsInARow_ = 0;
  fresh_ = false;
  isUnsure_ = track_.kind == MediaKind::audio && file_->container() == "ogg";
  unsurePage_.reset();
  if (av_seek_frame(&demuxer_->context(), stream, target, flags) >= 0) return true;
  restart();
  return false;
}

bool PacketSource::seekTo(const KeyFrame& key) {
  if (source_.seeksByPosition) return seek(-1, key.position, AVSEEK_FLAG_BYTE);
  return seek(track_.streamIndex, key.dts + source_.demuxerShift, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekBefore(int64_t ticks) {
  return seek(track_.streamIndex, ticks + source_.demuxerShift, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekToStart() { return fresh_ || restart(); }

bool PacketSource::restart() {
  auto demuxer = file_->openDemuxer(nullptr);
  if (!demuxer) return false;
  demuxer_ = std::move(demuxer);
  prepareDemuxer();
  fresh_ = true;
  isUnsure_ = false;
  errorsInARow_ = 0;
  return true;
}

double PacketSource::seconds(int64_t ticks) const { return static_cast<double>(ticks) * source_.numerator / source_.denominator; }

}  // namespace vidloom
