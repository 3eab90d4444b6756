#include "vidloom/platform/avfoundation/AVAssetTrack.h"

#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

const MediaTrack* AVAssetTrack::mediaTrack() const { return file_ ? &file_->tracks()[static_cast<size_t>(trackIndex_)] : nullptr; }

bool AVAssetTrack::isEnabled() const { return !mediaTrack() || mediaTrack()->enabled; }

CMTimeRange AVAssetTrack::timeRange() const { return mediaTrack() ? mediaTrack()->timeRange : kCMTimeRangeZero; }

CGSize AVAssetTrack::naturalSize() const { return mediaTrack() ? mediaTrack()->naturalSize : CGSizeZero; }

CGAffineTransform AVAssetTrack::preferredTransform() const {
  return mediaTrack() ? mediaTrack()->preferredTransform : CGAffineTransformIdentity;
}

float AVAssetTrack::nominalFrameRate() const { return mediaTrack() ? static_cast<float>(mediaTrack()->nominalFrameRate) : 0.0f; }

CMTimeScale AVAssetTrack::naturalTimeScale() const { return mediaTrack() ? mediaTrack()->naturalTimeScale : 0; }

std::vector<CMFormatDescriptionRef> AVAssetTrack::formatDescriptions() const { return formatDescriptionsOf(mediaTrack()); }

std::vector<CMFormatDescriptionRef> AVAssetTrack::formatDescriptionsOf(const MediaTrack* media) {
  if (!media || media->kind == MediaKind::other) return {};
  const auto description = std::make_shared<CMFormatDescription>();
  if (media->kind == MediaKind::video) {
    description->mediaType = kCMMediaType_Video;
    description->dimensions = {media->codedWidth, media->codedHeight};
  } else {
    description->mediaType = kCMMediaType_Audio;
    description->hasStream = true;
    description->stream.mSampleRate = media->sampleRate;
    description->stream.mChannelsPerFrame = static_cast<uint32_t>(media->channels);
    if (media->codec == "aac") description->stream.mFormatID = kAudioFormatMPEG4AAC;
    if (media->codec.starts_with("pcm_")) description->stream.mFormatID = kAudioFormatLinearPCM;
    description->mediaSubType = description->stream.mFormatID;
  }
  return {description};
}

std::vector<MediaSegment> AVAssetTrack::mediaSegments() const {
  std::vector<MediaSegment> segments;
  const MediaTrack* media = mediaTrack();
  if (!media) return segments;
  for (const MediaEdit& edit : media->edits) {
    MediaSegment segment{edit.target, kCMTimeRangeInvalid, nullptr, trackIndex_};
    if (!edit.isEmpty()) {
      segment.media = CMTimeRangeMake(edit.mediaStart, edit.target.duration);
      segment.file = file_;
    }
    segments.push_back(std::move(segment));
  }
  return segments;
}

}  // namespace vidloom
