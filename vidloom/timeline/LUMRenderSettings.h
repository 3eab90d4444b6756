// Settings that readers and compositors of the whole process share.
#pragma once

#include <atomic>
#include <memory>

namespace vidloom {

class LUMRenderSettings {
 public:
  /// The one of the process. Any thread.
  static const std::shared_ptr<LUMRenderSettings>& shared();
  static std::shared_ptr<LUMRenderSettings> init();
  virtual ~LUMRenderSettings() = default;

  /// Sets the flag to true; nothing is probed.
  void prepare();
  /// Whether readers ask for '420f' (true) or 'BGRA' (false). Any thread.
  bool isYCbCrPixelFormatSupported() const { return isYCbCrPixelFormatSupported_.load(std::memory_order_relaxed); }
  void setIsYCbCrPixelFormatSupported(bool value) { isYCbCrPixelFormatSupported_.store(value, std::memory_order_relaxed); }

 protected:
  LUMRenderSettings() = default;

 private:
  std::atomic<bool> isYCbCrPixelFormatSupported_{false};
};

}  // namespace vidloom
