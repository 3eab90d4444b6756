// What an exporter tells its host.
#pragma once

#include <filesystem>
#include <functional>

#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// Every operation is optional: an empty member is not called. Set them before the export starts. All are called on the main queue,
/// except where noted, and must not wait there for the export to go on.
struct LUMRenderDelegate {
  /// After every sample that was appended; percent from 0 to 100 (beyond where the range does not start at zero).
  std::function<void(double percent)> renderDidUpdateProgress;
  /// The writer is through with the file. Its last status is not looked at before: ask the exporter's writer() here.
  std::function<void(const std::filesystem::path& url)> renderDidCompleteWithURL;
  /// The writer could not be made (then called on the thread of generate(), before it returns), or the export ended before
  /// everything was read. The error under NSUnderlyingErrorKey, where there is one, is the writer's or reader's own.
  std::function<void(const NSError& error)> renderDidFailedWithError;
  /// Called on the thread of cancel() where nothing was running.
  std::function<void()> renderDidCancelRendering;
};

}  // namespace vidloom
