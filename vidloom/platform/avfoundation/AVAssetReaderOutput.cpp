#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"

#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

AVAssetReaderOutput::~AVAssetReaderOutput() = default;

CMSampleBufferRef AVAssetReaderOutput::copyNextSampleBuffer() {
  const auto reader = reader_.lock();
  if (!reader || reader->status() == AVAssetReaderStatusUnknown) {
    NSLog("AVAssetReaderOutput copyNextSampleBuffer: there is no reader, or it has not been started");
    return nullptr;
  }
  if (ended_ || reader->status() != AVAssetReaderStatusReading) return nullptr;
  std::optional<NSError> error;
  CMSampleBufferRef sample = source_->next(&error);
  if (sample) {
    if (reader->status() != AVAssetReaderStatusReading) return nullptr;
    ++deliveredSamples_;
    return sample;
  }
  if (error) {
    reader->fail(*error);
  } else if (reader->status() == AVAssetReaderStatusReading && !ended_.exchange(true)) {
    reader->outputEnded();
  }
  return nullptr;
}

void AVAssetReaderOutput::cancelSource() {
  if (source_) source_->cancel();
}

}  // namespace vidloom
