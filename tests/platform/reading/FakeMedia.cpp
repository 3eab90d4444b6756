#include "tests/platform/reading/FakeMedia.h"

#include <algorithm>

#include "tests/platform/pixels/TestPictures.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom::testing {

namespace {

PictureRef numberedPicture(int number, int width, int height) {
  const auto picture = test::flatPicture(width, height, kMark, 128, 128);
  picture->mutableY()[0] = static_cast<uint8_t>(16 + number % 200);
  picture->mutableY()[1] = static_cast<uint8_t>(16 + number / 200);
  return picture;
}

/// What both kinds of decoders share.
template <class Interface>
class FakeDecoder : public Interface {
 public:
  FakeDecoder(std::shared_ptr<const FakeFile> file, std::shared_ptr<DecoderLog> log)
      : file_(std::move(file)), log_(std::move(log)) {
    log_->count(1);
  }
  ~FakeDecoder() override { log_->count(-1); }
  void cancel() override {
    isCancelled_ = true;
    dispatch_semaphore_signal(cancelled_);
  }

 protected:
  const std::shared_ptr<const FakeFile> file_;
  const std::shared_ptr<DecoderLog> log_;
  const dispatch_semaphore_t cancelled_ = dispatch_semaphore_create(0);
  std::atomic<bool> isCancelled_{false};
};

class FakeVideoDecoder : public FakeDecoder<VideoDecoder> {
 public:
  using FakeDecoder::FakeDecoder;
  std::optional<VideoFrame> frameAt(const CMTime& mediaTime, std::optional<NSError>* error) override {
    if (log_->blocksUntilCancelled) dispatch_semaphore_wait(cancelled_, DISPATCH_TIME_FOREVER);
    if (isCancelled_ || file_->frameTicks_.empty()) {
      if (error) *error = AVMakeError(isCancelled_ ? AVErrorOperationCancelled : AVErrorDecodeFailed, "no picture in there");
      return std::nullopt;
    }
    ++log_->frames;
    const MediaTrack& track = file_->tracks_[0];
    const std::vector<int64_t>& ticks = file_->frameTicks_;
    const CMTimeScale scale = track.naturalTimeScale;
    const int64_t tick = CMTimeConvertScale(mediaTime, scale, CMTimeRoundingMethod::kRoundTowardNegativeInfinity).value;
    const auto next = std::upper_bound(ticks.begin() + 1, ticks.end(), tick);
    const int64_t own = *(next - 1);
    // Like a decoder that stops at the very frame asked for: what follows is not known then.
    next_ = own == tick ? kCMTimeInvalid : next == ticks.end() ? kCMTimePositiveInfinity : CMTimeMake(*next, scale);
    const auto number = static_cast<int>(next - ticks.begin() - 1);
    return VideoFrame{numberedPicture(number, track.codedWidth, track.codedHeight), CMTimeMake(own, scale)};
  }
  CMTime nextFrameTime() const override { return next_; }
  int seekCount() const override { return 0; }

 private:
  CMTime next_;
};

class FakeAudioDecoder : public FakeDecoder<AudioDecoder> {
 public:
  using FakeDecoder::FakeDecoder;
  double sampleRate() const override { return file_->tracks_[0].sampleRate; }
  bool read(int64_t firstFrame, int frameCount, float* interleavedStereo) override {
    for (int i = 0; i < 2 * frameCount; ++i) interleavedStereo[i] = file_->sound_(firstFrame + i / 2, i % 2);
    return !isCancelled_;
  }
  NativeSound readNextNative16(int16_t*, int) override { return {}; }
  int channels() const override { return 2; }
};

template <class Decoder, class Interface>
typename DecoderPool<Interface>::Opener opener(std::shared_ptr<DecoderLog> log) {
  return [log](const std::shared_ptr<const MediaFile>& file, int, std::optional<NSError>* error) -> std::unique_ptr<Interface> {
    if (log->failsToOpen) {
      if (error) *error = AVMakeError(AVErrorDecoderNotFound, "no decoder for that");
      return nullptr;
    }
    return std::make_unique<Decoder>(std::dynamic_pointer_cast<const FakeFile>(file), log);
  };
}

}  // namespace

std::shared_ptr<FakeFile> FakeFile::video(std::string name, CMTimeScale scale, std::vector<int64_t> frameTicks, int width,
                                          int height) {
  auto file = std::make_shared<FakeFile>();
  file->path_ = std::move(name);
  file->frameTicks_ = std::move(frameTicks);
  MediaTrack& track = file->tracks_[0];
  track.kind = MediaKind::video;
  track.naturalTimeScale = scale;
  track.codedWidth = width;
  track.codedHeight = height;
  track.naturalSize = {static_cast<double>(width), static_cast<double>(height)};
  return file;
}

std::shared_ptr<FakeFile> FakeFile::steadyVideo(std::string name, CMTimeScale scale, int64_t ticksPerFrame, int frameCount) {
  std::vector<int64_t> ticks;
  for (int i = 0; i < frameCount; ++i) ticks.push_back(i * ticksPerFrame);
  return video(std::move(name), scale, std::move(ticks));
}

std::shared_ptr<FakeFile> FakeFile::audio(std::string name, int sampleRate, SoundFunction sound) {
  auto file = std::make_shared<FakeFile>();
  file->path_ = std::move(name);
  file->sound_ = std::move(sound);
  MediaTrack& track = file->tracks_[0];
  track.kind = MediaKind::audio;
  track.naturalTimeScale = sampleRate;
  track.sampleRate = sampleRate;
  track.channels = 2;
  return file;
}

void DecoderLog::count(int change) {
  if (change > 0) ++opened;
  open += change;
  mostOpen = std::max(mostOpen.load(), open.load());
}

VideoDecoderPool::Opener fakeVideoOpener(std::shared_ptr<DecoderLog> log) {
  return opener<FakeVideoDecoder, VideoDecoder>(std::move(log));
}

AudioDecoderPool::Opener fakeAudioOpener(std::shared_ptr<DecoderLog> log) {
  return opener<FakeAudioDecoder, AudioDecoder>(std::move(log));
}

int frameNumber(const Picture& picture) {
  if (picture.width < 3 || picture.y.data[2] != kMark) return -1;
  return picture.y.data[0] - 16 + 200 * (picture.y.data[1] - 16);
}

FakeTrack::FakeTrack(CMPersistentTrackID trackID, const AVMediaType& mediaType, std::vector<MediaSegment> segments)
    : segments_(std::move(segments)) {
  trackID_ = trackID;
  mediaType_ = mediaType;
}

MediaSegment segment(const std::shared_ptr<const MediaFile>& file, CMTime targetStart, CMTime targetDuration, CMTime mediaStart,
                     CMTime mediaDuration) {
  return {{targetStart, targetDuration}, {mediaStart, mediaDuration}, file, 0};
}

MediaSegment segment(const std::shared_ptr<const MediaFile>& file, CMTime targetStart, CMTime duration, CMTime mediaStart) {
  return segment(file, targetStart, duration, mediaStart, duration);
}

MediaSegment emptySegment(CMTime targetStart, CMTime duration) {
  return {{targetStart, duration}, kCMTimeRangeInvalid, nullptr, 0};
}

}  // namespace vidloom::testing
