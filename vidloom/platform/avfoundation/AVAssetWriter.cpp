#include "vidloom/platform/avfoundation/AVAssetWriter.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "vidloom/platform/avfoundation/AVAssetWriterSession.h"
#include "vidloom/platform/avfoundation/AVAssetWriterSettings.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVSampleFeed.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace fs = std::filesystem;

namespace {

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path("."); }

std::optional<NSError> problemWith(const fs::path& url, const AVFileType& fileType) {
  std::error_code failure;
  if (url.empty() || !url.has_filename())
    return AVMakeError(AVErrorExportFailed, "A movie cannot be written without a file name", url);
  if (fileType != AVFileTypeMPEG4) {
    return AVMakeError(AVErrorFileFormatNotRecognized, "Movies of the type \"" + fileType + "\" cannot be written", url);
  }
  if (fs::is_directory(folderOf(url), failure)) return std::nullopt;
  const NSError cause = AVMakePOSIXError(failure ? failure.value() : ENOTDIR);
  return AVMakeError(AVErrorExportFailed,
                     "There is no folder \"" + folderOf(url).string() + "\" to write \"" + url.filename().string() +
                         "\" to: " + cause.localizedDescription(),
                     url, cause);
}

bool existsAt(const fs::path& url) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(url, ignored));
}

}  // namespace

std::shared_ptr<AVAssetWriter> AVAssetWriter::initWithURL(const fs::path& url, const AVFileType& fileType,
                                                          std::optional<NSError>* error) {
  if (auto problem = problemWith(url, fileType)) {
    if (error != nullptr) *error = std::move(problem);
    return nullptr;
  }
  struct Made : AVAssetWriter {};
  const std::shared_ptr<AVAssetWriter> writer = std::make_shared<Made>();
  writer->url_ = url;
  writer->session_ = std::make_shared<AVAssetWriterSession>();
  writer->queue_ = dispatch_queue_create("vidloom.writer", DISPATCH_QUEUE_SERIAL);
  return writer;
}

AVAssetWriter::~AVAssetWriter() {
  if (session_) session_->abandon();
}

AVAssetWriterStatus AVAssetWriter::status() const { return static_cast<AVAssetWriterStatus>(session_->status()); }

std::optional<NSError> AVAssetWriter::error() const { return session_->error(); }

std::vector<std::shared_ptr<AVAssetWriterInput>> AVAssetWriter::inputs() const {
  const std::lock_guard lock(mutex_);
  return inputs_;
}

void AVAssetWriter::setVideoEncoderOptions(const VideoEncoderOptions& options) {
  const std::lock_guard lock(mutex_);
  encoderOptions_ = options;
}

bool AVAssetWriter::canAddInput(const std::shared_ptr<AVAssetWriterInput>& input) const {
  if (!input || input->isAttached() || status() != AVAssetWriterStatusUnknown || !input->makeFeed()) return false;
  const auto present = inputs();
  return std::none_of(present.begin(), present.end(), [&](const auto& other) { return other->mediaType() == input->mediaType(); });
}

void AVAssetWriter::addInput(const std::shared_ptr<AVAssetWriterInput>& input) {
  if (!canAddInput(input) || !input->attach(session_)) {
    NSLog("AVAssetWriter: the input cannot be added to the writer of " + url_.string());
    return;
  }
  const std::lock_guard lock(mutex_);
  inputs_.push_back(input);
}

bool AVAssetWriter::startWriting() {
  if (status() != AVAssetWriterStatusUnknown) return false;
  const auto present = inputs();
  session_->setStopObserver([inputs = present] {
    for (const auto& input : inputs) input->writingStopped();
  });
  if (existsAt(url_)) {
    const NSError cause = AVMakePOSIXError(EEXIST);
    session_->startFailed(
        AVMakeError(AVErrorFileAlreadyExists, "There is a file at \"" + url_.string() + "\" already", url_, cause));
    return false;
  }
  std::optional<MovieWriter::VideoSettings> video;
  std::optional<MovieWriter::AudioSettings> audio;
  for (const auto& input : present) {
    if (input->mediaType() == AVMediaTypeVideo) video = AVAssetWriterSettings::video(input->outputSettings());
    if (input->mediaType() == AVMediaTypeAudio) audio = AVAssetWriterSettings::audio(input->outputSettings());
  }
  if (video) {
    const std::lock_guard lock(mutex_);
    video->encoder = encoderOptions_;
  }
  std::optional<NSError> problem;
  std::unique_ptr<MovieWriter> movie = MovieWriter::create(url_, video, audio, &problem);
  if (!movie) {
    session_->startFailed(problem.value_or(NSError{}));
    return false;
  }
  session_->start(std::move(movie));
  return status() == AVAssetWriterStatusWriting;
}

void AVAssetWriter::startSessionAtSourceTime(const CMTime& startTime) {
  if (!session_->setStartTime(startTime)) {
    NSLog("AVAssetWriter: a session starts once, at a number, while writing " + url_.string());
    return;
  }
  for (const auto& input : inputs()) input->sessionStarted();
}

void AVAssetWriter::finishWritingWithCompletionHandler(std::function<void()> handler) {
  for (const auto& input : inputs()) input->close();
  const bool finishing = session_->beginFinishing();
  dispatch_async(queue_, [self = shared_from_this(), finishing, handler = std::move(handler)] {
    if (finishing) {
      self->session_->completeFinishing([&](MovieWriter& movie, std::optional<NSError>* error) {
        const auto all = self->inputs();
        return std::all_of(all.begin(), all.end(), [&](const auto& input) { return input->endTrack(movie, error); });
      });
    }
    if (handler) handler();
  });
}

void AVAssetWriter::cancelWriting() { session_->cancel(); }

}  // namespace vidloom
