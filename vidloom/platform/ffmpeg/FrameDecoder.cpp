#include "vidloom/platform/ffmpeg/FrameDecoder.h"

#include <algorithm>
#include <utility>

#include "vidloom/platform/ffmpeg/DecoderContext.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidloom {

namespace {

constexpr int kMostReports = 20;
constexpr int64_t kSingleThreadPixels = 2048 * 1200;

int threadsFor(const MediaTrack& track) {
  const int64_t pixels = int64_t{track.codedWidth} * track.codedHeight;
  return pixels <= kSingleThreadPixels ? 1 : 2;
}

}  // namespace

std::unique_ptr<FrameDecoder> FrameDecoder::open(std::unique_ptr<PacketSource> packets, int threads,
                                                 std::optional<NSError>* error) {
  const TrackSource& source = packets->source();
  DecoderSettings settings;
  settings.threads = threads > 0 ? threads : threadsFor(packets->track());
  settings.alpha = packets->track().hasAlpha;
  settings.reorderDepth = source.reorderDepth;
  int avError = 0;
  auto context = source.parameters ? openDecoderContext(*source.parameters, source.numerator, source.denominator, settings,
                                                        packets->file().limits(), avError)
                                   : nullptr;
  if (!context) {
    setInputError(error, inputErrorFor(packets->file().path(), "cannot be decoded (" + packets->track().codec + ")", avError));
    return nullptr;
  }
  return std::unique_ptr<FrameDecoder>(new FrameDecoder(std::move(packets), std::move(context)));
}

FrameDecoder::FrameDecoder(std::unique_ptr<PacketSource> packets, AvCodecContextPointer context)
    : packets_(std::move(packets)),
      context_(std::move(context)),
      logName_(context_.get(), packets_->file().logName()),
      packet_(av_packet_alloc()) {}

bool FrameDecoder::restartAt(const KeyFrame& key) {
  reset(false);
  fromBeginning_ = !packets_->seekTo(key);
  return !fromBeginning_;
}

bool FrameDecoder::restartBefore(int64_t ticks) {
  reset(false);
  fromBeginning_ = !packets_->seekBefore(ticks);
  return !fromBeginning_;
}

bool FrameDecoder::restartAtBeginning() {
  reset(true);
  return packets_->seekToStart();
}

/// What the decoder misses after a jump is no damage of the file.
void FrameDecoder::reset(bool atBeginning) {
  fromBeginning_ = atBeginning;
  context_->log_level_offset = atBeginning ? 0 : AV_LOG_TRACE;
  avcodec_flush_buffers(context_.get());
  drained_ = sawUnrecovered_ = sawRecovered_ = false;
  errorsAtEnd_ = 0;
  latestSentPts_.reset();
  firstKeyPts_.reset();
}

FrameDecoder::Status FrameDecoder::next(DecodedFrame& decoded) {
  if (!decoded.frame) decoded.frame.reset(av_frame_alloc());
  if (!decoded.frame || !packet_) return Status::end;
  while (true) {
    if (packets_->isCancelled()) return Status::cancelled;
    const int result = avcodec_receive_frame(context_.get(), decoded.frame.get());
    if (result == AVERROR_EOF) return Status::end;
    if (result == AVERROR(EAGAIN)) {
      const Status status = sendPacket();
      if (status != Status::frame) return status;
      continue;
    }
    if (result < 0) {
      report("damaged picture data", packetPts_, result);
      if (drained_ && ++errorsAtEnd_ > kMostReports) return Status::end;
      continue;
    }
    const AVFrame& frame = *decoded.frame;
    decoded.pts = frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.best_effort_timestamp;
    if (decoded.pts == AV_NOPTS_VALUE) continue;
    classify(decoded);
    return Status::frame;
  }
}

bool FrameDecoder::isLeading(const DecodedFrame& decoded) const {
  return !fromBeginning_ && (!firstKeyPts_ || decoded.pts < *firstKeyPts_);
}

void FrameDecoder::classify(DecodedFrame& decoded) {
  const AVFrame& frame = *decoded.frame;
  // What comes out at the end is not marked: it is as good as what came before.
  const bool isMarked = (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0;
  decoded.isUnrecovered = isMarked || (drained_ && sawUnrecovered_ && !sawRecovered_);
  const bool leads = isLeading(decoded);
  if (!leads) (decoded.isUnrecovered ? sawUnrecovered_ : sawRecovered_) = true;
  decoded.isDamaged = !leads && !decoded.isUnrecovered && frame.decode_error_flags != 0;
  if (decoded.isDamaged) report("damaged picture", decoded.pts, AVERROR_INVALIDDATA);
}

/// `frame` when the decoder may have something to give now.
FrameDecoder::Status FrameDecoder::sendPacket() {
  if (drained_) return Status::end;
  const int result = packets_->next(*packet_);
  if (result == AVERROR_EXIT) return Status::cancelled;
  if (result == AVERROR_EOF) {
    drained_ = true;
    avcodec_send_packet(context_.get(), nullptr);
    return Status::frame;
  }
  if (result < 0) {
    report("damaged file data", packetPts_, result);
    return Status::frame;
  }
  noteSent();
  const int sent = avcodec_send_packet(context_.get(), packet_.get());
  if (sent < 0) report("damaged picture data", packetPts_, sent);
  av_packet_unref(packet_.get());
  return Status::frame;
}

void FrameDecoder::noteSent() {
  const int64_t pts = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
  if (pts == AV_NOPTS_VALUE) return;
  packetPts_ = pts;
  latestSentPts_ = std::max(pts, latestSentPts_.value_or(pts));
  if (!firstKeyPts_ && (packet_->flags & AV_PKT_FLAG_KEY) != 0) firstKeyPts_ = pts;
}

void FrameDecoder::report(const std::string& what, int64_t ticks, int avError) {
  const bool isRepeated = std::exchange(lastReport_, {ticks, avError}) == std::pair(ticks, avError);
  if (isRepeated || ++reports_ > kMostReports) return;
  const char* more = reports_ == kMostReports ? " (further damage to this track is not logged)" : "";
  NSLog(NSStringWithFormat("%s: %s at %.3f s: %s%s", packets_->file().logName().c_str(), what.c_str(), packets_->seconds(ticks),
                           AvLog::words(avError).c_str(), more));
}

}  // namespace vidloom
