#include "vidloom/timeline/LUMRenderSettings.h"

namespace vidloom {

std::shared_ptr<LUMRenderSettings> LUMRenderSettings::init() {
  struct Settings : LUMRenderSettings {};
  auto settings = std::make_shared<Settings>();
  settings->prepare();
  return settings;
}

const std::shared_ptr<LUMRenderSettings>& LUMRenderSettings::shared() {
  static const std::shared_ptr<LUMRenderSettings> settings = init();
  return settings;
}

void LUMRenderSettings::prepare() { setIsYCbCrPixelFormatSupported(true); }

}  // namespace vidloom
