// Decodes whatever bytes it is given as an image file.
#include "tests/fuzz/MemoryFile.h"
#include "vidloom/platform/ffmpeg/StillImageDecoder.h"
#include "vidloom/platform/foundation/NSLog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const bool isQuiet = (vidloom::NSLogSetSink([](const std::string&) {}), true);
  (void)isQuiet;
  const vidloom::MemoryFile memory(bytes, size);
  vidloom::MediaLimits limits;
  limits.maxPixels = 1 << 20;
  std::optional<vidloom::NSError> error;
  const auto image = vidloom::decodeStillImage(memory.path(), limits, &error);
  if (image.has_value() == error.has_value()) __builtin_trap();
  return 0;
}
