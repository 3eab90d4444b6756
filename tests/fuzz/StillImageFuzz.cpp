// Decodes whatever bytes it is given as an image file.
#include "tests/fuzz/MemoryFile.h"
#include "vidloom/platform/ffmpeg/StillImageDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  const vidloom::MemoryFile memory(bytes, size);
  std::optional<vidloom::NSError> error;
  const auto image = vidloom::decodeStillImage(memory.path(), vidloom::fuzzingLimits(), &error);
  if (image.has_value() == error.has_value()) __builtin_trap();
  return 0;
}
