#include "vidloom/platform/ffmpeg/Demuxer.h"

#include <algorithm>
#include <array>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace vidloom {

namespace {

constexpr int kBufferBytes = 32 * 1024;
constexpr unsigned kProbeBytes = 1024 * 1024;
constexpr int kProbePackets = 2;

constexpr std::string_view kMovie = "mov,mp4,m4a,3gp,3g2,mj2";
constexpr std::string_view kWave = "wav", kFlac = "flac";
constexpr std::array<std::string_view, 9> kContainers{kMovie, "matroska,webm", "avi", "mpegts", "mp3", kWave, kFlac, "ogg", "aac"};
constexpr int kWavePacketBytes = 32 * 1024;  // its own packets cost more to pass on than to decode

constexpr std::array kCodecs{
    AV_CODEC_ID_H264,       AV_CODEC_ID_HEVC,       AV_CODEC_ID_VP8,       AV_CODEC_ID_VP9,       AV_CODEC_ID_AV1,
    AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG4,     AV_CODEC_ID_H263,      AV_CODEC_ID_MSMPEG4V3,
    AV_CODEC_ID_MJPEG,      AV_CODEC_ID_PRORES,     AV_CODEC_ID_DNXHD,     AV_CODEC_ID_FFV1,      AV_CODEC_ID_THEORA,
    AV_CODEC_ID_PNG,        AV_CODEC_ID_QTRLE,      AV_CODEC_ID_RAWVIDEO,  AV_CODEC_ID_AAC,       AV_CODEC_ID_MP3,
    AV_CODEC_ID_MP2,        AV_CODEC_ID_AC3,        AV_CODEC_ID_EAC3,      AV_CODEC_ID_DTS,       AV_CODEC_ID_OPUS,
    AV_CODEC_ID_VORBIS,     AV_CODEC_ID_FLAC,       AV_CODEC_ID_ALAC,      AV_CODEC_ID_AMR_NB,    AV_CODEC_ID_AMR_WB,
    AV_CODEC_ID_PCM_U8,     AV_CODEC_ID_PCM_S8,     AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE, AV_CODEC_ID_PCM_S24LE,
    AV_CODEC_ID_PCM_S24BE,  AV_CODEC_ID_PCM_S32LE,  AV_CODEC_ID_PCM_S32BE, AV_CODEC_ID_PCM_F32LE, AV_CODEC_ID_PCM_F32BE,
    AV_CODEC_ID_PCM_F64LE,  AV_CODEC_ID_PCM_F64BE,  AV_CODEC_ID_PCM_ALAW,  AV_CODEC_ID_PCM_MULAW};

int refuseToOpen(AVFormatContext*, AVIOContext** io, const char*, int, AVDictionary**) {
  *io = nullptr;
  return AVERROR(EPERM);
}

int closeNothing(AVFormatContext*, AVIOContext*) { return 0; }

}  // namespace

bool isAllowedContainer(const std::string& name) {
  return std::find(kContainers.begin(), kContainers.end(), name) != kContainers.end();
}

bool isAllowedCodec(int codecId) { return std::find(kCodecs.begin(), kCodecs.end(), codecId) != kCodecs.end(); }

bool isMovieContainer(const std::string& name) { return name == kMovie; }

const AVInputFormat* Demuxer::recognise(const std::shared_ptr<const SourceFile>& file, const std::string& logName,
                                        std::string* refusedName, int& avError) {
  Demuxer reader(file);
  avError = reader.makeIO() ? 0 : AVERROR(ENOMEM);
  if (avError != 0) return nullptr;
  const AVInputFormat* format = nullptr;
  avError = av_probe_input_buffer2(reader.io_.get(), &format, logName.c_str(), nullptr, 0, kProbeBytes);
  if (avError < 0) return nullptr;
  avError = 0;
  if (isAllowedContainer(format->name)) return format;
  *refusedName = format->name;
  avError = AVERROR_DEMUXER_NOT_FOUND;
  return nullptr;
}

std::unique_ptr<Demuxer> Demuxer::open(std::shared_ptr<const SourceFile> file, const AVInputFormat* format, int maxStreams,
                                       const std::string& logName, int& avError) {
  AvLog::install();
  std::unique_ptr<Demuxer> demuxer(new Demuxer(std::move(file)));
  avError = demuxer->makeIO() ? demuxer->openInput(format, maxStreams, logName) : AVERROR(ENOMEM);
  return avError < 0 ? nullptr : std::move(demuxer);
}

Demuxer::~Demuxer() = default;

bool Demuxer::makeIO() {
  auto* buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
  if (!buffer) return false;
  io_.reset(avio_alloc_context(buffer, kBufferBytes, 0, this, readBytes, nullptr, seekBytes));
  if (!io_) av_free(buffer);
  return io_ != nullptr;
}

int Demuxer::openInput(const AVInputFormat* format, int maxStreams, const std::string& logName) {
  AVFormatContext* context = avformat_alloc_context();
  if (!context) return AVERROR(ENOMEM);
  context->pb = io_.get();
  context->flags |= AVFMT_FLAG_CUSTOM_IO;
  context->max_streams = maxStreams;
  context->max_probe_packets = kProbePackets;
  context->io_open = refuseToOpen;
  context->io_close2 = closeNothing;
  context->interrupt_callback = {[](void* self) { return static_cast<Demuxer*>(self)->isCancelled() ? 1 : 0; }, this};
  logName_ = AvLogName(context, logName);
  AVDictionary* options = nullptr;
  if (isMovieContainer(format->name)) {
    av_dict_set(&options, "ignore_editlist", "1", 0);
    av_dict_set(&options, "ignore_chapters", "1", 0);
    av_dict_set(&options, "enable_drefs", "0", 0);
  }
  if (format->name == kWave) av_dict_set_int(&options, "max_size", kWavePacketBytes, 0);
  const int result = avformat_open_input(&context, "", format, &options);
  av_dict_free(&options);
  if (result < 0) return result;
  format_.reset(context);
  return 0;
}

int Demuxer::read(AVPacket& packet) {
  if (isCancelled()) return AVERROR_EXIT;
  const int result = av_read_frame(format_.get(), &packet);
  if (result >= 0 && format_->iformat->name == kFlac) correctTime(packet);
  return result;
}

/// FLAC without a header: times count samples, durations do not, and the last packet's time comes of the duration before it.
void Demuxer::correctTime(AVPacket& packet) {
  const AVStream& stream = *format_->streams[packet.stream_index];
  const int rate = stream.codecpar->sample_rate;
  if (rate <= 0 || rate == stream.time_base.den || packet.pts == AV_NOPTS_VALUE) return;
  if (lastDuration_ > 0 && packet.pts == lastTicks_ + lastDuration_) {
    packet.pts = packet.dts = lastTicks_ + av_rescale(lastDuration_, rate, stream.time_base.den);
  }
  lastTicks_ = packet.pts;
  lastDuration_ = packet.duration;
}

int Demuxer::readBytes(void* self, uint8_t* bytes, int count) {
  auto& demuxer = *static_cast<Demuxer*>(self);
  if (demuxer.isCancelled()) return AVERROR_EXIT;
  const int64_t got = demuxer.file_->readAt(demuxer.position_, bytes, static_cast<size_t>(count));
  if (got == 0) return AVERROR_EOF;
  if (got < 0) return AVERROR(static_cast<int>(-got));
  demuxer.position_ += got;
  return static_cast<int>(got);
}

int64_t Demuxer::seekBytes(void* self, int64_t offset, int whence) {
  auto& demuxer = *static_cast<Demuxer*>(self);
  if (whence == AVSEEK_SIZE) return demuxer.file_->size();
  int64_t base = 0;
  if ((whence & ~AVSEEK_FORCE) == SEEK_CUR) base = demuxer.position_;
  if ((whence & ~AVSEEK_FORCE) == SEEK_END) base = demuxer.file_->size();
  if (__builtin_add_overflow(base, offset, &base) || base < 0) return AVERROR(EINVAL);
  demuxer.position_ = base;
  return base;
}

}  // namespace vidloom
