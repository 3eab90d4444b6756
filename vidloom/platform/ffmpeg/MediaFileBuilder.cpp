#include "vidloom/platform/ffmpeg/MediaFileBuilder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "vidloom/platform/ffmpeg/ColorTags.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/ffmpeg/MovieTimeline.h"
#include "vidloom/platform/ffmpeg/ScannedTimeline.h"
#include "vidloom/platform/ffmpeg/SoundTail.h"
#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace vidloom {

namespace {

constexpr int kMostInspectedPackets = 2000, kMostErrorsInARow = 100;
/// How much of a large file is read for its times.
struct ScanWindow {
  int64_t largestWholeBytes, headBytes, tailBytes;
};
constexpr ScanWindow kPacketWindow{int64_t{192} << 20, int64_t{16} << 20, int64_t{32} << 20};
constexpr ScanWindow kSampleWindow{int64_t{1} << 20, int64_t{128} << 10, int64_t{256} << 10};  // where time is a matter of bytes
constexpr double kWidestPixel = 32;
constexpr int kCoverStreams = 32;  // that a movie may have beside its tracks

bool isCover(const AVStream& stream) {
  return (stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS)) != 0;
}

MediaKind kindOf(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  if (!isAllowedCodec(codec.codec_id) || isCover(stream)) return MediaKind::other;
  if (codec.codec_type == AVMEDIA_TYPE_VIDEO) return MediaKind::video;
  return codec.codec_type == AVMEDIA_TYPE_AUDIO ? MediaKind::audio : MediaKind::other;
}

bool declaresAlpha(const AVStream& stream) {
  const AVDictionaryEntry* mode = av_dict_get(stream.metadata, "alpha_mode", nullptr, 0);
  return mode && std::strcmp(mode->value, "1") == 0;
}

/// Width of a pixel by its height; nothing where that is not stated or beyond all reason.
std::optional<double> pixelAspect(double width, double height) {
  if (width <= 0 || height <= 0 || width > height * kWidestPixel || height > width * kWidestPixel) return std::nullopt;
  return width / height;
}

/// A matrix that a container other than ISO files keeps beside a stream: moved so that the picture's corner is at the origin.
CGAffineTransform sideDataTransform(const AVStream& stream, const CGSize& size) {
  size_t bytes = 0;
  const uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
  if (!data || bytes < 9 * sizeof(int32_t)) return CGAffineTransformIdentity;
  std::array<int32_t, 9> fixed{};
  std::memcpy(fixed.data(), data, sizeof fixed);
  CGAffineTransform transform =
      CGAffineTransformMake(fixed[0] / 65536.0, fixed[1] / 65536.0, fixed[3] / 65536.0, fixed[4] / 65536.0, 0, 0);
  transform.tx = -std::min(0.0, transform.a * size.width) - std::min(0.0, transform.c * size.height);
  transform.ty = -std::min(0.0, transform.b * size.width) - std::min(0.0, transform.d * size.height);
  return transform;
}

}  // namespace

MediaFileBuilder::MediaFileBuilder(const std::filesystem::path& path, const MediaLimits& limits, std::optional<NSError>* error)
    : path_(path), limits_(limits), error_(error) {}

bool MediaFileBuilder::fail(NSError error) {
  setInputError(error_, std::move(error));
  return false;
}

std::shared_ptr<const MediaFile> MediaFileBuilder::build() {
  AvLog::install();
  const std::string name = path_.string();
  const AvLogScope scope(name);
  if (!openBytes() || !readContainer() || !readPackets() || !describeStreams()) return nullptr;
  placeTracks();
  file_->finish();
  return file_;
}

bool MediaFileBuilder::openBytes() {
  bytes_ = SourceFile::open(path_, error_);
  if (!bytes_) return false;
  int avError = 0;
  std::string refused;
  const AVInputFormat* format = Demuxer::recognise(bytes_, path_.filename().string(), &refused, avError);
  if (!format) {
    if (!refused.empty())
      return fail(inputError(AVErrorFileFormatNotRecognized, path_, "is of a kind that is not read (" + refused + ")"));
    return fail(inputError(AVErrorFileFormatNotRecognized, path_, "is no media file that can be read", avError));
  }
  file_ = std::make_shared<OpenedMediaFile>(path_, format, limits_, bytes_);
  return true;
}

bool MediaFileBuilder::readContainer() {
  if (isMovieContainer(file_->container())) {
    std::string problem;
    movie_ = MovieHeader::read(*bytes_, limits_, &problem);
    if (!movie_) return fail(inputError(AVErrorFileFailedToParse, path_, "cannot be read: " + problem));
  }
  demuxer_ = file_->openDemuxer(error_);
  if (!demuxer_) return false;
  const AVFormatContext& context = demuxer_->context();
  const unsigned most = static_cast<unsigned>(limits_.maxTracks + (movie_ ? kCoverStreams : 0));
  if (context.nb_streams > most) {
    return fail(inputError(AVErrorFileFailedToParse, path_, "has more than " + std::to_string(limits_.maxTracks) + " tracks"));
  }
  return true;
}

bool MediaFileBuilder::needsInspection(int streamIndex) const {
  const auto found = inspectors_.find(streamIndex);
  return found != inspectors_.end() && !found->second.isDone();
}

void MediaFileBuilder::prepareInspection() {
  AVFormatContext& context = demuxer_->context();
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVStream& stream = *context.streams[i];
    const bool isMedia = kindOf(stream) != MediaKind::other;
    if (isMedia) inspectors_.try_emplace(stream.index, stream, declaresAlpha(stream), limits_);
    const bool isRead = isMedia && (isScanned_ || needsInspection(stream.index));
    context.streams[i]->discard = isRead ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
}

int MediaFileBuilder::sampleBytes() const {
  const AVFormatContext& context = demuxer_->context();
  if (file_->container() != "wav" || context.nb_streams != 1) return 0;
  const AVCodecParameters& codec = *context.streams[0]->codecpar;
  return av_get_exact_bits_per_sample(codec.codec_id) * codec.ch_layout.nb_channels / 8;
}

/// Reads packets until the streams are understood, or all of them where the times have to come from the packets. Of large files
/// the middle is left out, unless a track turns out to end there.
bool MediaFileBuilder::readPackets() {
  isScanned_ = !movie_ || movie_->isFragmented();
  prepareInspection();
  const bool seeksWell =
      file_->container() == "matroska,webm" || file_->container() == "mpegts" || file_->container() == "avi" || sampleBytes() > 0;
  const int64_t largestWhole = (sampleBytes() > 0 ? kSampleWindow : kPacketWindow).largestWholeBytes;
  for (bool mayJump = seeksWell && bytes_->size() > largestWhole;; mayJump = false) {
    PacketScan scan(demuxer_->context(), scans_);
    if (!readRun(scan, mayJump)) return false;
    const bool isEnough = scan.sawAllAtTheEnd();
    scan.finish();
    if (isEnough) return true;
    scans_.clear();
    demuxer_ = file_->openDemuxer(error_);
    if (!demuxer_) return false;
    inspectors_.clear();
    prepareInspection();
  }
}

bool MediaFileBuilder::readRun(PacketScan& scan, bool mayJump) {
  AvPacketPointer packet(av_packet_alloc());
  int errorsInARow = 0;
  const int64_t headBytes = (sampleBytes() > 0 ? kSampleWindow : kPacketWindow).headBytes;
  for (int count = 0; packet && errorsInARow < kMostErrorsInARow; ++count) {
    const bool anyLeft =
        std::any_of(inspectors_.begin(), inspectors_.end(), [](const auto& item) { return !item.second.isDone(); });
    if (!isScanned_ && (!anyLeft || count >= kMostInspectedPackets)) break;
    if (mayJump && avio_tell(demuxer_->context().pb) > headBytes) {
      mayJump = false;
      if (jumpToTail()) scan.jump();
    }
    const int result = demuxer_->read(*packet);
    if (result == AVERROR_EOF) break;
    errorsInARow = result < 0 ? errorsInARow + 1 : 0;
    if (result < 0) continue;
    inspect(*packet, count);
    if (isScanned_ && !scan.add(*packet, limits_.maxSamplesPerTrack)) {
      return fail(inputError(AVErrorFileFailedToParse, path_, "has a track of too many packets"));
    }
    av_packet_unref(packet.get());
  }
  return true;
}

bool MediaFileBuilder::jumpToTail() {
  AVFormatContext& context = demuxer_->context();
  const int64_t size = bytes_->size(), tailBytes = kPacketWindow.tailBytes;
  if (const int bytes = sampleBytes()) {
    const int64_t skipped = (size - kSampleWindow.tailBytes - avio_tell(context.pb)) / bytes;
    return av_seek_frame(&context, 0, scans_[0].times.endPts + skipped, AVSEEK_FLAG_BACKWARD) >= 0;
  }
  if (file_->container() == "mpegts") return av_seek_frame(&context, -1, size - tailBytes, AVSEEK_FLAG_BYTE) >= 0;
  if (context.duration <= 0) return false;
  const int64_t start = context.start_time == AV_NOPTS_VALUE ? 0 : context.start_time;
  const int64_t target = start + av_rescale(context.duration, size - tailBytes, size);
  return av_seek_frame(&context, -1, target, AVSEEK_FLAG_BACKWARD) >= 0;
}

void MediaFileBuilder::inspect(const AVPacket& packet, int count) {
  if (!needsInspection(packet.stream_index) || count >= kMostInspectedPackets) return;
  const bool done = inspectors_.at(packet.stream_index).offer(packet);
  if (done && !isScanned_) demuxer_->context().streams[packet.stream_index]->discard = AVDISCARD_ALL;
}

bool MediaFileBuilder::describeStreams() {
  AVFormatContext& context = demuxer_->context();
  std::string refusedCodec;
  bool anyUsable = false;
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVStream& stream = *context.streams[i];
    const auto inspector = inspectors_.find(stream.index);
    if (inspector != inspectors_.end() && !checkLimits(stream, inspector->second.facts())) return false;
    describe(stream);
    const AVCodecParameters& codec = *stream.codecpar;
    const bool isMedia = codec.codec_type == AVMEDIA_TYPE_VIDEO || codec.codec_type == AVMEDIA_TYPE_AUDIO;
    if (isMedia && !isCover(stream) && !isAllowedCodec(codec.codec_id)) refusedCodec = avcodec_get_name(codec.codec_id);
    anyUsable = anyUsable || file_->tracks().back().kind != MediaKind::other;
  }
  if (anyUsable || refusedCodec.empty()) return true;
  return fail(inputError(AVErrorDecoderNotFound, path_, "holds nothing that can be decoded (" + refusedCodec + ")"));
}

bool MediaFileBuilder::checkLimits(const AVStream& stream, const StreamFacts& facts) {
  const int64_t pixels = int64_t{facts.width} * facts.height;
  if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && pixels > limits_.maxPixels) {
    return fail(inputError(
        AVErrorFileFailedToParse, path_,
        "has pictures of " + std::to_string(facts.width) + "x" + std::to_string(facts.height) + " pixels, more than are read"));
  }
  if (facts.channels <= limits_.maxChannels) return true;
  return fail(inputError(AVErrorFileFailedToParse, path_,
                         "has sound of " + std::to_string(facts.channels) + " channels, more than are read"));
}

void MediaFileBuilder::describe(const AVStream& stream) {
  MediaTrack track;
  track.streamIndex = stream.index;
  track.trackID = stream.index + 1;
  track.kind = kindOf(stream);
  track.codec = avcodec_get_name(stream.codecpar->codec_id);
  track.naturalTimeScale = std::max(1, stream.time_base.den);
  TrackSource source;
  source.parameters.reset(avcodec_parameters_alloc());
  if (source.parameters) avcodec_parameters_copy(source.parameters.get(), stream.codecpar);
  if (const auto found = inspectors_.find(stream.index); found != inspectors_.end()) source.facts = found->second.facts();
  source.numerator = stream.time_base.num;
  source.denominator = stream.time_base.den;
  if (const MovieHeaderTrack* header = movieTrackOf(stream)) {
    track.trackID = static_cast<int32_t>(header->trackID);
    track.enabled = header->enabled;
  }
  if (track.kind == MediaKind::video) describePicture(stream, track);
  if (track.kind == MediaKind::audio) {
    const StreamFacts& facts = inspectors_.at(stream.index).facts();
    track.sampleRate = facts.sampleRate;
    track.channels = facts.channels;
    source.soundPacketFrames = facts.packetFrames;
    // This demuxer counts samples, whatever its time base says.
    if (file_->container() == "flac" && facts.sampleRate > 0) source.denominator = facts.sampleRate;
  }
  const bool isUsable = track.kind == MediaKind::video   ? track.codedWidth > 0 && track.codedHeight > 0
                        : track.kind == MediaKind::audio ? track.sampleRate > 0 && track.channels > 0
                                                         : true;
  if (!isUsable) track.kind = MediaKind::other;
  file_->addTrack(std::move(track), std::move(source));
}

void MediaFileBuilder::describePicture(const AVStream& stream, MediaTrack& track) const {
  const StreamFacts& facts = inspectors_.at(stream.index).facts();
  const ColorReading colors = readColorTags(facts);
  track.codedWidth = facts.width;
  track.codedHeight = facts.height;
  track.color = colors.color;
  track.colorIsTagged = colors.isTagged;
  track.highDynamicRange = colors.highDynamicRange;
  track.interlaced = facts.interlaced;
  track.hasAlpha = declaresAlpha(stream) || hasAlphaPlane(facts.pixelFormat);
  double aspect = pixelAspect(facts.pixelAspectWidth, facts.pixelAspectHeight).value_or(1);
  const MovieHeaderTrack* header = movieTrackOf(stream);
  if (!movie_) aspect = pixelAspect(stream.sample_aspect_ratio.num, stream.sample_aspect_ratio.den).value_or(aspect);
  if (header) aspect = pixelAspect(header->pixelAspectWidth, header->pixelAspectHeight).value_or(aspect);
  track.naturalSize = CGSizeMake(facts.width * aspect, facts.height);
  track.preferredTransform = header ? header->transform : sideDataTransform(stream, track.naturalSize);
}

void MediaFileBuilder::describeRate(const AVStream& stream, const SampleTimes& times, MediaTrack& track) const {
  const double ticksPerSecond = stream.time_base.num > 0 ? static_cast<double>(stream.time_base.den) / stream.time_base.num : 0;
  const int64_t spread = times.longestDelta - times.shortestDelta;
  track.variableFrameRate = spread > 2 && spread * 20 > times.shortestDelta;
  if (!movie_ && stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0) {
    track.nominalFrameRate = av_q2d(stream.avg_frame_rate);
  } else if (spread == 0 && times.longestDelta > 0) {
    track.nominalFrameRate = ticksPerSecond / static_cast<double>(times.longestDelta);
  } else if (times.durationTicks > 0) {
    track.nominalFrameRate = static_cast<double>(times.sampleCount) * ticksPerSecond / static_cast<double>(times.durationTicks);
  }
}

const MovieHeaderTrack* MediaFileBuilder::movieTrackOf(const AVStream& stream) const {
  if (!movie_ || isCover(stream)) return nullptr;
  for (const MovieHeaderTrack& track : movie_->tracks()) {
    if (track.trackID == static_cast<uint32_t>(stream.id)) return &track;
  }
  return nullptr;
}

/// A last packet that gives nothing takes no time.
void MediaFileBuilder::measureTail(const MediaTrack& track, ScannedStream& scan) const {
  if (!scan.lastPacket) return;
  const AVStream& stream = *demuxer_->context().streams[track.streamIndex];
  scan.lastFrames = framesInLastPacket(stream, *scan.lastPacket, track.sampleRate, limits_).value_or(-1);
  scan.lastPacket.reset();
  if (scan.lastFrames != 0 || scan.times.sampleCount < 2) return;
  scan.times.endPts -= scan.lastDuration;
  scan.times.durationTicks -= scan.lastDuration;
  --scan.times.sampleCount;
  scan.lastDuration = scan.firstStep;
  scan.lastFrames = -1;
}

void MediaFileBuilder::placeTracks() {
  std::vector<ScannedTrack> scanned;
  for (size_t i = 0; i < file_->tracks().size(); ++i) {
    MediaTrack& track = file_->track(i);
    TrackSource& source = file_->sourceBeingBuilt(i);
    if (track.kind == MediaKind::other) continue;
    const auto scan = scans_.find(track.streamIndex);
    if (isScanned_ && scan != scans_.end()) measureTail(track, scan->second);
    if (isScanned_ && (scan == scans_.end() || !scan->second.hasTimes)) {
      track.kind = MediaKind::other;
      continue;
    }
    if (isScanned_) {
      source.keyFrames = scan->second.times.keyFrames;
      source.reorderDepth = scan->second.times.reorderDepth;
      source.firstTicks = scan->second.times.firstPts;
      if (track.kind == MediaKind::video) describeRate(*demuxer_->context().streams[track.streamIndex], scan->second.times, track);
    }
    if (movie_) {
      placeMovieTrack(i);
    } else {
      scanned.push_back({&track, &source, &scan->second});
    }
  }
  placeScannedTracks(scanned);
}

void MediaFileBuilder::placeMovieTrack(size_t trackIndex) {
  MediaTrack& track = file_->track(trackIndex);
  TrackSource& source = file_->sourceBeingBuilt(trackIndex);
  const AVStream& stream = *demuxer_->context().streams[track.streamIndex];
  const MovieHeaderTrack* header = movieTrackOf(stream);
  if (!header) {
    track.kind = MediaKind::other;
    return;
  }
  source.demuxerShift = header->demuxerShift;
  source.fragmentsFromDts = header->times.durationTicks;
  MediaExtent extent{header->times.firstPts, header->times.endPts, header->times.durationTicks};
  if (isScanned_) {
    const ScannedStream& scan = scans_.at(track.streamIndex);
    extent = {mediaTicks(source, scan.times.firstPts, scan.firstDts), scan.times.endPts - source.demuxerShift, 0};
    for (KeyFrame& key : source.keyFrames) key.pts = mediaTicks(source, key.pts, key.dts);
  } else {
    source.keyFrames = header->times.keyFrames;
    source.reorderDepth = header->times.reorderDepth;
    if (track.kind == MediaKind::video) describeRate(stream, header->times, track);
    if (track.kind == MediaKind::audio) trustTimes(header->times, track, source);
  }
  source.firstTicks = extent.firstTicks;
  track.naturalTimeScale = stream.time_base.den;
  if (extent.endTicks <= extent.firstTicks) {
    track.kind = MediaKind::other;
    return;
  }
  track.edits = movieEdits(*header, movie_->timescale(), extent);
  if (track.kind == MediaKind::audio && header->edits.empty()) trimByTag(track);
  track.timeRange = timeRangeOf(track.edits);
}

/// Where nearly all packets last as long as their samples, the time stamps are those of the samples. A first packet that lasts
/// less has lost its beginning.
void MediaFileBuilder::trustTimes(const SampleTimes& times, const MediaTrack& track, TrackSource& source) {
  const double usual = static_cast<double>(times.usualDelta) * source.numerator / source.denominator * track.sampleRate;
  source.soundTimesAreExact = times.usualShare > 0.9 && std::fabs(usual - source.soundPacketFrames) < 0.01;
  if (source.soundTimesAreExact && times.firstDelta < times.usualDelta)
    source.firstPacketShift = times.firstDelta - times.usualDelta;
}

/// Files without an edit list may say in a tag how much of their sound is the encoder's.
void MediaFileBuilder::trimByTag(MediaTrack& track) const {
  const AVDictionaryEntry* entry = av_dict_get(demuxer_->context().metadata, "iTunSMPB", nullptr, 0);
  const std::optional<GaplessTag> tag = GaplessTag::parse(entry ? entry->value : nullptr);
  const auto rate = static_cast<CMTimeScale>(track.sampleRate);
  if (!tag || track.edits.size() != 1 || rate <= 0) return;
  MediaEdit& edit = track.edits.front();
  const CMTime left = CMTimeSubtract(edit.target.duration, CMTimeMake(tag->delay, rate));
  if (left.value <= 0) return;
  edit.mediaStart = CMTimeAdd(edit.mediaStart, CMTimeMake(tag->delay, rate));
  edit.target.duration = CMTimeMinimum(left, CMTimeMake(tag->length, rate));
}

}  // namespace vidloom
