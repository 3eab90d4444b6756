// What the tests of the asset reader share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"

namespace vidloom::testing {

/// The settings that exporters use.
inline NSDictionary videoSettings(OSType format) { return {{kCVPixelBufferPixelFormatTypeKey, static_cast<uint32_t>(format)}}; }
NSDictionary pcmSettings(bool isFloat);

/// The first track of that kind; null without one.
std::shared_ptr<AVAssetTrack> firstTrack(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType);
/// A composition with one track of that kind, and the source range of the file on it, again and again.
struct Piece {
  std::filesystem::path file;
  CMTimeRange source;
  CMTime at = kCMTimeInvalid;
};
std::shared_ptr<AVMutableComposition> compositionOf(const std::vector<Piece>& pieces, const AVMediaType& mediaType);
/// One instruction that shows all video tracks as they are for an hour.
std::shared_ptr<AVMutableVideoComposition> plainVideoComposition(const std::shared_ptr<AVAsset>& asset, const CGSize& renderSize,
                                                                 const CMTime& frameDuration);

struct ReadFrames {
  std::vector<int> indices;  ///< see readFrameIndex
  std::vector<CMTime> times;
  std::vector<CMTime> durations;
  CGSize size{};  ///< of the last
};
ReadFrames readFrames(AVAssetReaderOutput& output);
/// The bytes of all samples as values of that type.
template <class Value>
std::vector<Value> readSound(AVAssetReaderOutput& output) {
  std::vector<Value> all;
  while (const auto sample = output.copyNextSampleBuffer()) {
    const auto& bytes = CMSampleBufferGetDataBuffer(sample)->bytes();
    const auto* values = reinterpret_cast<const Value*>(bytes.data());
    all.insert(all.end(), values, values + bytes.size() / sizeof(Value));
  }
  return all;
}

/// A reader that has been started on that one output; null where it does not start.
std::shared_ptr<AVAssetReader> startedReader(const std::shared_ptr<AVAsset>& asset,
                                             const std::shared_ptr<AVAssetReaderOutput>& output,
                                             const CMTimeRange& range = {kCMTimeZero, kCMTimePositiveInfinity});

}  // namespace vidloom::testing
