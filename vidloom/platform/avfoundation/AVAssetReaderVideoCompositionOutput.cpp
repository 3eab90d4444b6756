#include <algorithm>
#include <cmath>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/platform/reading/FrameServer.h"
#include "vidloom/platform/reading/PixelFormats.h"

namespace vidloom {

namespace {

bool isUsable(const AVMutableVideoComposition& composition) {
  const CMTime frameDuration = composition.frameDuration();
  return composition.renderSize().width > 0 && composition.renderSize().height > 0 && composition.renderScale() > 0 &&
         CMTIME_IS_NUMERIC(frameDuration) && frameDuration.timescale > 0 && frameDuration.value > 0;
}

/// Rounded up; what is too long to count is for ever.
uint64_t nanoseconds(const CMTime& time) {
  const double count = std::ceil(CMTimeGetSeconds(time) * 1e9);
  return CMTIME_IS_NUMERIC(time) && count < 0x1p63 ? static_cast<uint64_t>(count) : ~uint64_t{0};
}

}  // namespace

std::shared_ptr<AVAssetReaderVideoCompositionOutput> AVAssetReaderVideoCompositionOutput::initWithVideoTracks(
    const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks, const std::optional<NSDictionary>& videoSettings) {
  const std::shared_ptr<AVAssetReaderVideoCompositionOutput> output(new AVAssetReaderVideoCompositionOutput);
  output->videoTracks_ = videoTracks;
  output->videoSettings_ = videoSettings;
  return output;
}

const AVMediaType& AVAssetReaderVideoCompositionOutput::mediaType() const { return AVMediaTypeVideo; }

void AVAssetReaderVideoCompositionOutput::setVideoComposition(const std::shared_ptr<AVMutableVideoComposition>& videoComposition) {
  if (started_ || (videoComposition && !isUsable(*videoComposition))) {
    NSLog(std::string("AVAssetReaderVideoCompositionOutput setVideoComposition: refused, ") +
          (started_ ? "reading has been started" : "render size, render scale and frame duration must be above zero"));
    return;
  }
  const AVVideoCompositingClass before =
      videoComposition_ ? videoComposition_->customVideoCompositorClass() : AVVideoCompositingClass{};
  videoComposition_ = videoComposition ? videoComposition->copy() : nullptr;
  const AVVideoCompositingClass now =
      videoComposition_ ? videoComposition_->customVideoCompositorClass() : AVVideoCompositingClass{};
  if (!(now == before)) compositor_ = now && now.make ? now.make() : nullptr;
}

void AVAssetReaderVideoCompositionOutput::setCompositorTimeout(const CMTime& timeout) {
  if (started_ || !CMTIME_IS_VALID(timeout) || CMTIME_IS_INDEFINITE(timeout) || CMTimeCompare(timeout, kCMTimeZero) <= 0) {
    NSLog(std::string("AVAssetReaderVideoCompositionOutput setCompositorTimeout: refused, ") +
          (started_ ? "reading has been started" : "it must be above zero"));
    return;
  }
  compositorTimeout_ = timeout;
}

bool AVAssetReaderVideoCompositionOutput::fitsAsset(const std::shared_ptr<AVAsset>& asset) const {
  return !videoTracks_.empty() && std::all_of(videoTracks_.begin(), videoTracks_.end(), [&](const auto& track) {
    return track && track->mediaType() == AVMediaTypeVideo && track->asset() == asset;
  });
}

std::shared_ptr<SampleSource> AVAssetReaderVideoCompositionOutput::makeSource(const CMTimeRange& range,
                                                                              std::optional<NSError>* error) {
  started_ = true;
  if (!videoComposition_) {
    *error = AVMakeError(AVErrorInvalidVideoComposition, "The reader's output has no video composition");
    return nullptr;
  }
  FrameServer::Setup setup;
  if (videoSettings_) {
    const std::optional<OSType> format = pixelFormatIn(*videoSettings_);
    if (!format) {
      *error =
          AVMakeError(AVErrorUnsupportedOutputSettings, "The video settings name no pixel format among '420f', '420v' and 'BGRA'");
      return nullptr;
    }
    setup.pixelFormat = *format;
  }
  setup.videoTracks = videoTracks_;
  setup.composition = videoComposition_;
  setup.compositor = compositor_;
  setup.range = range;
  setup.answerTimeoutNs = nanoseconds(compositorTimeout_);
  return FrameServer::make(std::move(setup), error);
}

}  // namespace vidloom
