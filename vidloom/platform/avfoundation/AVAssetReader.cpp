#include "vidloom/platform/avfoundation/AVAssetReader.h"

#include <algorithm>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

std::shared_ptr<AVAssetReader> AVAssetReader::initWithAsset(const std::shared_ptr<AVAsset>& asset, std::optional<NSError>* error) {
  std::optional<NSError> problem;
  if (!asset) problem = AVMakeError(AVErrorUnknown, "A reader needs an asset");
  if (const auto file = std::dynamic_pointer_cast<AVURLAsset>(asset)) problem = file->openError();
  if (error) *error = problem;
  if (problem) return nullptr;
  const std::shared_ptr<AVAssetReader> reader(new AVAssetReader);
  reader->asset_ = asset;
  return reader;
}

AVAssetReader::~AVAssetReader() {
  for (const auto& output : outputs_) output->cancelSource();
}

AVAssetReaderStatus AVAssetReader::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<NSError> AVAssetReader::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

CMTimeRange AVAssetReader::timeRange() const {
  const std::lock_guard lock(mutex_);
  return timeRange_;
}

void AVAssetReader::setTimeRange(const CMTimeRange& timeRange) {
  const std::lock_guard lock(mutex_);
  if (status_ == AVAssetReaderStatusUnknown) {
    timeRange_ = timeRange;
  } else {
    NSLog("AVAssetReader setTimeRange: ignored, reading has been started");
  }
}

bool AVAssetReader::canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) const {
  if (!output || status() != AVAssetReaderStatusUnknown || !output->reader_.expired()) return false;
  return output->fitsAsset(asset_);
}

void AVAssetReader::addOutput(const std::shared_ptr<AVAssetReaderOutput>& output) {
  if (!canAddOutput(output)) {
    NSLog("AVAssetReader addOutput: ignored, the output cannot be added");
    return;
  }
  const std::lock_guard lock(mutex_);
  output->reader_ = weak_from_this();
  outputs_.push_back(output);
}

std::vector<std::shared_ptr<AVAssetReaderOutput>> AVAssetReader::outputs() const {
  const std::lock_guard lock(mutex_);
  return outputs_;
}

CMTimeRange AVAssetReader::readRange() const {
  const CMTime duration = asset_->duration();
  const CMTimeRange asked = timeRange();
  if (!CMTIME_IS_NUMERIC(duration) || !CMTIMERANGE_IS_VALID(asked) || !CMTIME_IS_NUMERIC(asked.start)) return kCMTimeRangeZero;
  const CMTime start = CMTimeMaximum(asked.start, kCMTimeZero);
  // The end of an infinite range lies at infinity and loses against the asset's.
  const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(asked), duration);
  if (CMTimeCompare(start, end) >= 0) return {start, kCMTimeZero};
  return CMTimeRangeFromTimeToTime(start, end);
}

bool AVAssetReader::startReading() {
  {
    const std::lock_guard lock(mutex_);
    if (isStarted_ || status_ != AVAssetReaderStatusUnknown) {
      NSLog("AVAssetReader startReading: refused, reading has been started or cancelled before");
      return false;
    }
    isStarted_ = true;
  }
  const CMTimeRange range = readRange();
  std::vector<std::shared_ptr<SampleSource>> sources;
  for (const auto& output : outputs()) {
    std::optional<NSError> problem;
    auto source = output->makeSource(range, &problem);
    if (!source) {
      fail(problem.value_or(AVMakeError(AVErrorUnknown, "An output cannot be read")));
      return false;
    }
    sources.push_back(std::move(source));
  }
  const std::lock_guard lock(mutex_);
  if (status_ != AVAssetReaderStatusUnknown) return false;
  for (size_t i = 0; i < sources.size(); ++i) outputs_[i]->source_ = std::move(sources[i]);
  status_ = AVAssetReaderStatusReading;
  return true;
}

void AVAssetReader::cancelReading() {
  {
    const std::lock_guard lock(mutex_);
    if (status_ == AVAssetReaderStatusCompleted || status_ == AVAssetReaderStatusFailed) return;
    status_ = AVAssetReaderStatusCancelled;
  }
  for (const auto& output : outputs()) output->cancelSource();
}

void AVAssetReader::outputEnded() {
  const std::lock_guard lock(mutex_);
  ++endedOutputs_;
  if (status_ == AVAssetReaderStatusReading && endedOutputs_ == outputs_.size()) status_ = AVAssetReaderStatusCompleted;
}

void AVAssetReader::fail(const NSError& error) {
  {
    const std::lock_guard lock(mutex_);
    if (status_ != AVAssetReaderStatusReading && status_ != AVAssetReaderStatusUnknown) return;
    status_ = AVAssetReaderStatusFailed;
    error_ = error;
  }
  for (const auto& output : outputs()) output->cancelSource();
}

}  // namespace vidloom
