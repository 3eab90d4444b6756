#include "vidloom/export/RenderSession.h"

#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMRenderSettings.h"

namespace vidloom {
namespace {

constexpr int64_t kAudioFormatMPEG4AAC = 0x61616320;  // 'aac '

NSError stopError(const std::string& text, const std::optional<NSError>& cause = std::nullopt) {
  NSDictionary userInfo{{NSLocalizedDescriptionKey, text}};
  if (cause) userInfo[NSUnderlyingErrorKey] = *cause;
  return NSError::errorWithDomain("LUMRender", -1, std::move(userInfo));
}

/// An operation that failed without saying why.
NSError unexplained() { return NSError::errorWithDomain("LUMRender", -1); }

NSDictionary videoOutputSettings() {
  const OSType format = LUMRenderSettings::shared()->isYCbCrPixelFormatSupported() ? kCVPixelFormatType_420YpCbCr8BiPlanarFullRange
                                                                                   : kCVPixelFormatType_32BGRA;
  return {{kCVPixelBufferPixelFormatTypeKey, int64_t{format}}, {kCVPixelBufferMetalCompatibilityKey, true}};
}

NSDictionary videoInputSettings(const CGSize& renderSize) {
  return {{AVVideoWidthKey, renderSize.width}, {AVVideoHeightKey, renderSize.height}, {AVVideoCodecKey, AVVideoCodecTypeH264}};
}

NSDictionary audioInputSettings() {
  return {{AVFormatIDKey, kAudioFormatMPEG4AAC},
          {AVEncoderBitRateKey, int64_t{128000}},
          {AVNumberOfChannelsKey, int64_t{2}},
          {AVSampleRateKey, int64_t{44100}}};
}

CMTime latestEnd(const std::vector<std::shared_ptr<AVAssetTrack>>& tracks) {
  CMTime latest = kCMTimeZero;
  for (const auto& track : tracks) {
    const CMTimeRange range = track->timeRange();
    if (CMTimeGetSeconds(range.start) + CMTimeGetSeconds(range.duration) > CMTimeGetSeconds(latest))
      latest = CMTimeAdd(range.start, range.duration);
  }
  return latest;
}

void cancelParts(const RenderSession::Parts& parts) {
  if (parts.reader) parts.reader->cancelReading();
  if (parts.writer) parts.writer->cancelWriting();
}

}  // namespace

RenderSession::Parts RenderSession::parts() const {
  const std::lock_guard lock(mutex_);
  return parts_;
}

std::optional<NSError> RenderSession::makeWriter(const std::filesystem::path& url, const VideoEncoderOptions& options) {
  std::optional<NSError> error;
  const auto writer = AVAssetWriter::initWithURL(url, AVFileTypeMPEG4, &error);
  if (writer) writer->setVideoEncoderOptions(options);
  change([&](Parts& parts) {
    parts.writer = writer;
    parts.serialQueue = dispatch_queue_create("corvane.renderer.queue.serial", DISPATCH_QUEUE_SERIAL);
  });
  if (writer) return std::nullopt;
  const NSError cause = error.value_or(unexplained());
  return stopError("LUMRender cannot create AVAssetWriter with error " + cause.localizedDescription(), cause);
}

std::optional<NSError> RenderSession::makeReader(const CMTimeRange& range) {
  std::optional<NSError> error;
  const auto reader = AVAssetReader::initWithAsset(data_->composition(), &error);
  if (reader) reader->setTimeRange(range);
  change([&](Parts& parts) { parts.reader = reader; });
  if (reader) return std::nullopt;
  const NSError cause = error.value_or(unexplained());
  return stopError("LUMRender cannot create AVAssetReader with error: " + cause.localizedDescription(), cause);
}

std::optional<NSError> RenderSession::selectTracks() {
  videoTracks_ = data_->composition()->tracksWithMediaType(AVMediaTypeVideo);
  audioTracks_ = data_->composition()->tracksWithMediaType(AVMediaTypeAudio);
  if (videoTracks_.empty()) return stopError("LUMRender video tracks is empty.");
  return std::nullopt;
}

std::optional<NSError> RenderSession::addVideoOutput(const CMTime& drawTimeout) {
  const auto output = AVAssetReaderVideoCompositionOutput::initWithVideoTracks(videoTracks_, videoOutputSettings());
  output->setVideoComposition(data_->videoComposition());
  output->setCompositorTimeout(drawTimeout);
  output->setAlwaysCopiesSampleData(false);
  change([&](Parts& parts) { parts.videoOutput = output; });
  if (!parts_.reader->canAddOutput(output))
    return stopError("LUMRender cannot add AVAssetReaderVideoCompositionOutput in AVAssetReader");
  parts_.reader->addOutput(output);
  return std::nullopt;
}

std::optional<NSError> RenderSession::addVideoInput(const CGSize& renderSize, bool expectsMediaDataInRealTime) {
  const auto input = AVAssetWriterInput::initWithMediaType(AVMediaTypeVideo, videoInputSettings(renderSize));
  change([&](Parts& parts) { parts.videoInput = input; });
  if (!parts_.writer->canAddInput(input))
    return stopError("LUMRender cannot add AVAssetWriterInput(AVMediaTypeVideo) in AVAssetWritter");
  parts_.writer->addInput(input);
  input->setExpectsMediaDataInRealTime(expectsMediaDataInRealTime);
  return std::nullopt;
}

void RenderSession::addAudioOutput(const std::shared_ptr<AVMutableAudioMix>& audioMix) {
  if (audioTracks_.empty()) return;
  const auto output = AVAssetReaderAudioMixOutput::initWithAudioTracks(audioTracks_, std::nullopt);
  output->setAudioTimePitchAlgorithm(AVAudioTimePitchAlgorithmVarispeed);
  output->setAudioMix(audioMix);
  output->setAlwaysCopiesSampleData(false);
  if (!parts_.reader->canAddOutput(output)) {
    LUMGlobal::LUMLog("LUMRender cannot add  AVAssetReaderAudioMixOutput in AVAssetReader");
    return;
  }
  parts_.reader->addOutput(output);
  change([&](Parts& parts) { parts.audioOutput = output; });
}

void RenderSession::addAudioInput(bool expectsMediaDataInRealTime) {
  if (!parts_.audioOutput) return;
  const auto input = AVAssetWriterInput::initWithMediaType(AVMediaTypeAudio, audioInputSettings());
  const bool accepted = parts_.writer->canAddInput(input);
  change([&](Parts& parts) {
    parts.audioInput = input;
    if (!accepted) parts.audioOutput = nullptr;
  });
  if (!accepted) {
    LUMGlobal::LUMLog("LUMRender cannot add AVAssetWriterInput(AVMediaTypeAudio) in AVAssetWritter. removing audio in composition");
    return;
  }
  parts_.writer->addInput(input);
  input->setExpectsMediaDataInRealTime(expectsMediaDataInRealTime);
}

std::optional<NSError> RenderSession::start() {
  const bool writing = parts_.writer->startWriting();
  const bool reading = parts_.reader->startReading();
  if (writing && reading) return std::nullopt;
  // The labels stand the wrong way round: part of the interface.
  const std::string text = NSStringWithFormat("%s reader: %i  writer: %i", "Cannot start AVAssetWritter or AVAssetReader",
                                              writing ? 1 : 0, reading ? 1 : 0);
  return stopError(text, writing ? parts_.reader->error() : parts_.writer->error());
}

double RenderSession::totalSeconds() const {
  const double audioSeconds = parts().audioOutput ? CMTimeGetSeconds(latestEnd(audioTracks_)) : 0.0;
  return audioSeconds + CMTimeGetSeconds(latestEnd(videoTracks_));
}

void RenderSession::cancel() const { cancelParts(parts()); }

void RenderSession::cancelInBackground() const {
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED), [parts = parts()] { cancelParts(parts); });
}

}  // namespace vidloom
