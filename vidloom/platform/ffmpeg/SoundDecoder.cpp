#include "vidloom/platform/ffmpeg/SoundDecoder.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "vidloom/platform/ffmpeg/DecoderContext.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mathematics.h>
}

namespace vidloom {

namespace {

constexpr int kMostReports = 20;
constexpr int kJitterMs = 25;
constexpr int kExactJitterSamples = 2;
constexpr int kGuardedPackets = 4;

/// Samples that a decoder must have behind it before what it gives is what it would give from the start.
int64_t prerollOf(AVCodecID codec, int rate, int packetFrames) {
  switch (codec) {
    case AV_CODEC_ID_AAC:
      return 3 * std::max(2048, packetFrames);
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_MP2:
      return 10 * 1152;
    case AV_CODEC_ID_OPUS:
      return rate * 80 / 1000;
    case AV_CODEC_ID_VORBIS:
      return 2 * 8192;
    case AV_CODEC_ID_AMR_NB:
    case AV_CODEC_ID_AMR_WB:
      return rate;
    case AV_CODEC_ID_FLAC:
    case AV_CODEC_ID_ALAC:
      return 0;
    default:
      return av_get_exact_bits_per_sample(codec) > 0 ? 0 : 2 * 2048;
  }
}

}  // namespace

std::unique_ptr<SoundDecoder> SoundDecoder::open(std::unique_ptr<PacketSource> packets, std::optional<NSError>* error) {
  const TrackSource& source = packets->source();
  int avError = 0;
  auto context = source.parameters ? openDecoderContext(*source.parameters, source.numerator, source.denominator, {},
                                                        packets->file().limits(), avError)
                                   : nullptr;
  if (!context) {
    setInputError(error, inputErrorFor(packets->file().path(), "cannot be decoded (" + packets->track().codec + ")", avError));
    return nullptr;
  }
  return std::unique_ptr<SoundDecoder>(new SoundDecoder(std::move(packets), std::move(context)));
}

SoundDecoder::SoundDecoder(std::unique_ptr<PacketSource> packets, AvCodecContextPointer context)
    : packets_(std::move(packets)),
      context_(std::move(context)),
      logName_(context_.get(), packets_->file().logName()),
      packet_(av_packet_alloc()),
      rate_(std::max(1, static_cast<int>(packets_->track().sampleRate))),
      guardedPackets_(kGuardedPackets),
      quietBefore_(std::numeric_limits<int64_t>::min()) {
  const TrackSource& source = packets_->source();
  firstSample_ = sampleAt(source.firstTicks);
  if (source.hasSoundAnchor) {
    anchorShift_ = source.soundAnchor - firstSample_;
    firstSample_ = source.soundAnchor;
  }
  prerollSamples_ = prerollOf(context_->codec_id, rate_, source.soundPacketFrames);
}

int64_t SoundDecoder::sampleAt(int64_t ticks) const {
  const TrackSource& source = packets_->source();
  return av_rescale_q(ticks, {source.numerator, source.denominator}, {1, rate_}) + anchorShift_;
}

int64_t SoundDecoder::ticksAt(int64_t sample) const {
  const TrackSource& source = packets_->source();
  return av_rescale_q_rnd(sample - anchorShift_, {1, rate_}, {source.numerator, source.denominator}, AV_ROUND_DOWN);
}

/// Time stamps that are a little off are put on the grid of whole packets that begins with the first one.
int64_t SoundDecoder::snapped(int64_t sample) const {
  const TrackSource& source = packets_->source();
  const int64_t tick = av_rescale_q_rnd(1, {source.numerator, source.denominator}, {1, rate_}, AV_ROUND_UP);
  if (source.soundTimesAreExact || source.soundPacketFrames <= 0) return sample;
  const int64_t frames = source.soundPacketFrames, offset = sample - firstSample_;
  const int64_t nearest = firstSample_ + (offset + frames / 2) / frames * frames;
  return std::llabs(nearest - sample) <= std::max<int64_t>(tick, kExactJitterSamples) ? nearest : sample;
}

void SoundDecoder::reset(bool atBeginning) {
  fromBeginning_ = atBeginning;
  avcodec_flush_buffers(context_.get());
  nextSample_.reset();
  drained_ = false;
  errorsAtEnd_ = 0;
  guardedPackets_ = kGuardedPackets;
}

/// libavcodec must not cut off what packets ask it to, or what it knows of an encoder by the first one: samples are counted by us.
/// Telling it so costs it memory for every frame, so it is told only around such packets.
void SoundDecoder::guardSamples() {
  if (av_packet_get_side_data(packet_.get(), AV_PKT_DATA_SKIP_SAMPLES, nullptr)) guardedPackets_ = kGuardedPackets;
  if (guardedPackets_ > 0) {
    --guardedPackets_;
    context_->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
  } else {
    context_->flags2 &= ~AV_CODEC_FLAG2_SKIP_MANUAL;
  }
}

void SoundDecoder::restartAtBeginning() {
  reset(true);
  packets_->seekToStart();
}

SoundDecoder::Status SoundDecoder::restartBefore(int64_t sample, SoundBlock& block) {
  const bool isPaged = packets_->file().container() == "ogg";  // times are sure from the second page on
  for (int64_t back = prerollSamples_ + (isPaged ? 2 * rate_ : rate_ / 100); sample - back > firstSample_; back *= 4) {
    reset(false);
    quietBefore_ = sample;
    if (!packets_->seekBefore(ticksAt(sample - back))) break;
    const Status status = next(block);
    if (status == Status::cancelled || (status == Status::block && block.first <= sample - prerollSamples_)) return status;
  }
  restartAtBeginning();
  return next(block);
}

SoundDecoder::Status SoundDecoder::next(SoundBlock& block) {
  if (!block.frame) block.frame.reset(av_frame_alloc());
  if (!block.frame || !packet_) return Status::end;
  while (true) {
    if (packets_->isCancelled()) return Status::cancelled;
    context_->log_level_offset = !nextSample_ || *nextSample_ < quietBefore_ ? AV_LOG_TRACE : 0;
    const int result = avcodec_receive_frame(context_.get(), block.frame.get());
    if (result == AVERROR_EOF) return Status::end;
    if (result == AVERROR(EAGAIN)) {
      const Status status = sendPacket();
      if (status != Status::block) return status;
      continue;
    }
    if (result < 0) {
      report("damaged sound data", result);
      if (drained_ && ++errorsAtEnd_ > kMostReports) return Status::end;
      continue;
    }
    if (block.frame->nb_samples <= 0 || !place(block)) continue;
    return Status::block;
  }
}

/// False where nothing tells where the block belongs: after a jump into the middle, before the first time stamp.
bool SoundDecoder::place(SoundBlock& block) {
  const AVFrame& frame = *block.frame;
  if (frame.pts == AV_NOPTS_VALUE && !nextSample_ && !fromBeginning_) return false;
  int64_t first = nextSample_.value_or(firstSample_);
  if (frame.pts != AV_NOPTS_VALUE) {
    const TrackSource& source = packets_->source();
    const int64_t ticks = frame.pts == source.firstTicks ? frame.pts + source.firstPacketShift : frame.pts;
    const int64_t stamped = snapped(sampleAt(ticks));
    const int64_t jitter = source.soundTimesAreExact ? kExactJitterSamples : int64_t{rate_} * kJitterMs / 1000;
    if (!nextSample_ || std::llabs(stamped - *nextSample_) > jitter) first = stamped;
  }
  block.first = first;
  block.end = first + frame.nb_samples;
  nextSample_ = block.end;
  return true;
}

SoundDecoder::Status SoundDecoder::sendPacket() {
  if (drained_) return Status::end;
  const int result = packets_->next(*packet_);
  if (result == AVERROR_EXIT) return Status::cancelled;
  if (result == AVERROR_EOF) {
    drained_ = true;
    avcodec_send_packet(context_.get(), nullptr);
    return Status::block;
  }
  if (result < 0) {
    report("damaged file data", result);
    return Status::block;
  }
  if (packet_->pts != AV_NOPTS_VALUE) packetTicks_ = packet_->pts;
  guardSamples();
  const int sent = avcodec_send_packet(context_.get(), packet_.get());
  if (sent < 0) report("damaged sound data", sent);
  av_packet_unref(packet_.get());
  return Status::block;
}

/// What was lost is silence: the next block is placed by its time stamp alone.
void SoundDecoder::report(const char* what, int avError) {
  nextSample_.reset();
  fromBeginning_ = false;
  if (sampleAt(packetTicks_) < quietBefore_ || ++reports_ > kMostReports) return;
  const char* more = reports_ == kMostReports ? " (further damage to this track is not logged)" : "";
  NSLog(NSStringWithFormat("%s: %s at %.3f s: %s%s", packets_->file().logName().c_str(), what, packets_->seconds(packetTicks_),
                           AvLog::words(avError).c_str(), more));
}

}  // namespace vidloom
