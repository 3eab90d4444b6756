// Prints where the library finds its blank clips, a line each. Fails where one is missing or not two seconds long.
#include <iostream>

#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/timeline/LUMGlobal.h"

int main() {
  for (const uint64_t fps : vidloom::LUMGlobal::availableFrameRates()) {
    const auto clip = std::dynamic_pointer_cast<vidloom::AVURLAsset>(vidloom::LUMGlobal::LUMEmptyFootageForFPS(fps));
    if (!clip || vidloom::CMTimeCompare(clip->duration(), vidloom::CMTimeMake(2, 1)) != 0) return 1;
    std::cout << clip->URL().string() << '\n';
  }
}
