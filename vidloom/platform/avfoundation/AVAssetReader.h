// Reading samples out of an asset.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"

namespace vidloom {

enum AVAssetReaderStatus : int64_t {
  AVAssetReaderStatusUnknown = 0,
  AVAssetReaderStatusReading = 1,
  AVAssetReaderStatusCompleted = 2,
  AVAssetReaderStatusFailed = 3,
  AVAssetReaderStatusCancelled = 4,
};

/// Outputs are added and the range is set before startReading. status() and error() may be read from any thread. The status becomes
/// completed when every output has answered null for want of data, before the last of them returns it.
class AVAssetReader : public std::enable_shared_from_this<AVAssetReader> {
 public:
  /// Null with an error for a null asset or one that could not be opened.
  static std::shared_ptr<AVAssetReader> initWithAsset(const std::shared_ptr<AVAsset>& asset, std::optional<NSError>* error);
  ~AVAssetReader();

  AVAssetReaderStatus status() const;
  /// Set in status failed only. Names the file or object, the time and the cause.
  std::optional<NSError> error() const;
  const std::shared_ptr<AVAsset>& asset() const { return asset_; }
  CMTimeRange timeRange() const;
  /// Default (0, +infinity). What is read is its intersection with (0, duration of the asset). Ignored after the start.
  void setTimeRange(const CMTimeRange& timeRange);

  bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) const;
  void addOutput(const std::shared_ptr<AVAssetReaderOutput>& output);
  std::vector<std::shared_ptr<AVAssetReaderOutput>> outputs() const;

  /// False where the settings do not fit (status failed with an error) and when called twice.
  bool startReading();
  /// At any moment, from any thread: a blocked copy wakes and returns null. Status completed and failed stay as they are.
  void cancelReading();

 private:
  friend class AVAssetReaderOutput;
  AVAssetReader() = default;
  /// What is read: the intersection of the range that was set with (0, duration of the asset).
  CMTimeRange readRange() const;
  void outputEnded();
  void fail(const NSError& error);

  mutable std::mutex mutex_;
  std::shared_ptr<AVAsset> asset_;
  std::vector<std::shared_ptr<AVAssetReaderOutput>> outputs_;
  CMTimeRange timeRange_{kCMTimeZero, kCMTimePositiveInfinity};
  AVAssetReaderStatus status_ = AVAssetReaderStatusUnknown;
  std::optional<NSError> error_;
  size_t endedOutputs_ = 0;
  bool isStarted_ = false;
};

}  // namespace vidloom
