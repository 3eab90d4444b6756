#include "vidloom/platform/ffmpeg/MediaFileBuilder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "vidloom/platform/ffmpeg/ColorTags.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/ffmpeg/MovieTimeline.h"
#include "vidloom/platform/ffmpeg/ScannedTimeline.h"
#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace vidloom {

namespace {

constexpr int kMostInspectedPackets = 2000;
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

void discardAllBut(AVFormatContext& context, MediaKind first, MediaKind second) {
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const MediaKind kind = kindOf(*context.streams[i]);
    context.streams[i]->discard = kind == first || kind == second ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
}

CGAffineTransform transformOf(const std::array<double, 9>& m) { return {m[0], m[1], m[3], m[4], m[6], m[7]}; }

/// A matrix that a container other than ISO files keeps beside a stream: moved so that the picture's corner is at the origin.
CGAffineTransform sideDataTransform(const AVStream& stream, const CGSize& size) {
  size_t bytes = 0;
  const uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
  if (!data || bytes < 9 * sizeof(int32_t)) return CGAffineTransformIdentity;
  std::array<int32_t, 9> fixed{};
  std::memcpy(fixed.data(), data, sizeof fixed);
  std::array<double, 9> m{};
  for (size_t i = 0; i < 9; ++i) m[i] = fixed[i] / 65536.0;
  CGAffineTransform transform = transformOf(m);
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
  if (!openBytes() || !readContainer() || !inspectStreams() || !scanIfNeeded() || !describeStreams()) return nullptr;
  placeTracks();
  file_->finish();
  return file_;
}

bool MediaFileBuilder::openBytes() {
  AvLog::install();
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
  AVFormatContext& context = demuxer_->context();
  const bool headersSuffice = movie_ || file_->container() == "matroska,webm";
  if (!headersSuffice) {
    const int result = avformat_find_stream_info(&context, nullptr);
    if (result < 0) return fail(inputErrorFor(path_, "cannot be read", result));
  }
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

bool MediaFileBuilder::inspectStreams() {
  AVFormatContext& context = demuxer_->context();
  discardAllBut(context, MediaKind::video, MediaKind::audio);
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVStream& stream = *context.streams[i];
    if (kindOf(stream) != MediaKind::other) inspectors_.try_emplace(stream.index, stream, declaresAlpha(stream), limits_);
    if (!needsInspection(stream.index)) context.streams[i]->discard = AVDISCARD_ALL;
  }
  AvPacketPointer packet(av_packet_alloc());
  for (int count = 0; packet && count < kMostInspectedPackets; ++count) {
    const bool anyLeft =
        std::any_of(inspectors_.begin(), inspectors_.end(), [](const auto& item) { return !item.second.isDone(); });
    if (!anyLeft || demuxer_->read(*packet) < 0) break;
    const int index = packet->stream_index;
    if (needsInspection(index) && inspectors_.at(index).offer(*packet)) context.streams[index]->discard = AVDISCARD_ALL;
    av_packet_unref(packet.get());
  }
  return true;
}

bool MediaFileBuilder::scanIfNeeded() {
  isScanned_ = !movie_ || movie_->isFragmented();
  if (!isScanned_) return true;
  auto scanner = file_->openDemuxer(error_);
  if (!scanner) return false;
  discardAllBut(scanner->context(), MediaKind::video, MediaKind::audio);
  if (scanPackets(*scanner, limits_.maxSamplesPerTrack, scans_)) return true;
  return fail(inputError(AVErrorFileFailedToParse, path_, "has a track of too many packets"));
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
  AVRational aspect{facts.pixelAspectWidth, facts.pixelAspectHeight};
  const MovieHeaderTrack* header = movieTrackOf(stream);
  if (!movie_ && stream.sample_aspect_ratio.num > 0 && stream.sample_aspect_ratio.den > 0) aspect = stream.sample_aspect_ratio;
  if (header && header->pixelAspectWidth > 0) aspect = {header->pixelAspectWidth, header->pixelAspectHeight};
  track.naturalSize = CGSizeMake(facts.width, facts.height);
  if (aspect.num > 0 && aspect.den > 0) track.naturalSize.width = static_cast<double>(facts.width) * aspect.num / aspect.den;
  track.preferredTransform = header ? transformOf(header->matrix) : sideDataTransform(stream, track.naturalSize);
}

void MediaFileBuilder::describeRate(const AVStream& stream, const SampleTimes& times, MediaTrack& track) const {
  const double ticksPerSecond = stream.time_base.num > 0 ? static_cast<double>(stream.time_base.den) / stream.time_base.num : 0;
  const int64_t spread = times.longestDelta - times.shortestDelta;
  track.variableFrameRate = spread > 2 && spread * 20 > times.shortestDelta;
  if (spread == 0 && times.longestDelta > 0) {
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

void MediaFileBuilder::placeTracks() {
  std::vector<ScannedTrack> scanned;
  for (size_t i = 0; i < file_->tracks().size(); ++i) {
    MediaTrack& track = file_->track(i);
    TrackSource& source = file_->sourceBeingBuilt(i);
    if (track.kind == MediaKind::other) continue;
    const auto scan = scans_.find(track.streamIndex);
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
  MediaExtent extent{header->times.firstPts, header->times.endPts};
  if (isScanned_) {
    const SampleTimes& times = scans_.at(track.streamIndex).times;
    extent = {times.firstPts - source.demuxerShift, times.endPts - source.demuxerShift};
    for (KeyFrame& key : source.keyFrames) key.pts -= source.demuxerShift;
  } else {
    source.keyFrames = header->times.keyFrames;
    source.reorderDepth = header->times.reorderDepth;
    if (track.kind == MediaKind::video) describeRate(stream, header->times, track);
  }
  source.firstTicks = extent.firstTicks;
  track.naturalTimeScale = stream.time_base.den;
  if (extent.endTicks <= extent.firstTicks) {
    track.kind = MediaKind::other;
    return;
  }
  track.edits = movieEdits(*header, movie_->timescale(), extent);
  track.timeRange = timeRangeOf(track.edits);
}

}  // namespace vidloom
