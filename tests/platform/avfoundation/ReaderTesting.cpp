#include "tests/platform/avfoundation/ReaderTesting.h"

#include <gtest/gtest.h>

#include <cstring>

namespace vidloom::testing {

NSDictionary pcmSettings(bool isFloat) {
  return {{AVFormatIDKey, kAudioFormatLinearPCM},
          {AVLinearPCMBitDepthKey, isFloat ? 32 : 16},
          {AVLinearPCMIsBigEndianKey, false},
          {AVLinearPCMIsFloatKey, isFloat},
          {AVLinearPCMIsNonInterleaved, false}};
}

std::shared_ptr<AVAssetTrack> firstTrack(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType) {
  const auto tracks = asset->tracksWithMediaType(mediaType);
  return tracks.empty() ? nullptr : tracks.front();
}

std::shared_ptr<AVMutableComposition> compositionOf(const std::vector<Piece>& pieces, const AVMediaType& mediaType) {
  auto composition = AVMutableComposition::composition();
  const auto track = composition->addMutableTrackWithMediaType(mediaType, 0);
  for (const Piece& piece : pieces) {
    std::optional<NSError> error;
    const auto asset = AVURLAsset::initWithURL(piece.file);
    EXPECT_TRUE(track->insertTimeRange(piece.source, firstTrack(asset, mediaType), piece.at, &error)) << *error;
  }
  return composition;
}

std::shared_ptr<AVMutableVideoComposition> plainVideoComposition(const std::shared_ptr<AVAsset>& asset, const CGSize& renderSize,
                                                                 const CMTime& frameDuration) {
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  instruction->setTimeRange({kCMTimeZero, CMTimeMake(3600, 1)});
  std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers;
  for (const auto& track : asset->tracksWithMediaType(AVMediaTypeVideo)) {
    layers.push_back(AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(track));
  }
  instruction->setLayerInstructions(layers);
  auto composition = AVMutableVideoComposition::videoComposition();
  composition->setRenderSize(renderSize);
  composition->setFrameDuration(frameDuration);
  composition->setInstructions({instruction});
  return composition;
}

ReadFrames readFrames(AVAssetReaderOutput& output) {
  ReadFrames frames;
  while (const auto sample = output.copyNextSampleBuffer()) {
    const PictureRef picture = CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample));
    frames.indices.push_back(readFrameIndex(*picture));
    frames.size = CGSizeMake(picture->width, picture->height);
    frames.times.push_back(CMSampleBufferGetPresentationTimeStamp(sample));
    frames.durations.push_back(CMSampleBufferGetDuration(sample));
  }
  return frames;
}

std::shared_ptr<AVAssetReader> startedReader(const std::shared_ptr<AVAsset>& asset,
                                             const std::shared_ptr<AVAssetReaderOutput>& output, const CMTimeRange& range) {
  std::optional<NSError> error;
  const auto reader = AVAssetReader::initWithAsset(asset, &error);
  if (!reader) return nullptr;
  reader->setTimeRange(range);
  reader->addOutput(output);
  return reader->startReading() ? reader : nullptr;
}

}  // namespace vidloom::testing
