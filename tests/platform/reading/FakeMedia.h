// Files, decoders and tracks without any media behind them: frames are pictures that carry their number, sound is a function.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/reading/DecoderPool.h"

namespace vidloom::testing {

using SoundFunction = std::function<float(int64_t frame, int channel)>;

/// One track: either frames at the given ticks of the track's timescale or sound.
class FakeFile : public MediaFile {
 public:
  static std::shared_ptr<FakeFile> video(std::string name, CMTimeScale scale, std::vector<int64_t> frameTicks, int width = 64,
                                         int height = 36);
  /// Frames at n x ticksPerFrame.
  static std::shared_ptr<FakeFile> steadyVideo(std::string name, CMTimeScale scale, int64_t ticksPerFrame, int frameCount);
  static std::shared_ptr<FakeFile> audio(std::string name, int sampleRate, SoundFunction sound);

  const std::filesystem::path& path() const override { return path_; }
  const std::string& container() const override { return container_; }
  CMTime duration() const override { return CMTimeMake(1000, 1); }
  const std::vector<MediaTrack>& tracks() const override { return tracks_; }

  std::vector<MediaTrack> tracks_{1};
  std::vector<int64_t> frameTicks_;
  SoundFunction sound_;

 private:
  std::filesystem::path path_;
  std::string container_ = "fake";
};

/// What the decoders of a test did.
struct DecoderLog {
  std::atomic<int> opened{0}, open{0}, mostOpen{0}, frames{0};
  std::atomic<bool> failsToOpen{false};
  std::atomic<bool> blocksUntilCancelled{false};
  void count(int change);
};

VideoDecoderPool::Opener fakeVideoOpener(std::shared_ptr<DecoderLog> log);
AudioDecoderPool::Opener fakeAudioOpener(std::shared_ptr<DecoderLog> log);

/// The luma of the third sample of every frame of a FakeFile.
inline constexpr uint8_t kMark = 77;
/// The number that a frame of a FakeFile carries; -1 for any other picture.
int frameNumber(const Picture& picture);

class FakeTrack : public AVAssetTrack {
 public:
  FakeTrack(CMPersistentTrackID trackID, const AVMediaType& mediaType, std::vector<MediaSegment> segments);
  std::vector<MediaSegment> mediaSegments() const override { return segments_; }
  const MediaTrack* mediaTrack() const override { return nullptr; }
  CMTimeRange timeRange() const override { return {kCMTimeZero, CMTimeMake(1000, 1)}; }

 private:
  std::vector<MediaSegment> segments_;
};

inline CMTime seconds(int64_t numerator, int32_t denominator = 1) { return CMTimeMake(numerator, denominator); }
/// A segment that plays media from `mediaStart` on.
MediaSegment segment(const std::shared_ptr<const MediaFile>& file, CMTime targetStart, CMTime targetDuration, CMTime mediaStart,
                     CMTime mediaDuration);
/// The same at natural speed.
MediaSegment segment(const std::shared_ptr<const MediaFile>& file, CMTime targetStart, CMTime duration, CMTime mediaStart);
MediaSegment emptySegment(CMTime targetStart, CMTime duration);

}  // namespace vidloom::testing
