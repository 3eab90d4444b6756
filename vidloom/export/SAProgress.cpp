#include "vidloom/export/SAProgress.h"

namespace vidloom {

std::shared_ptr<SAProgress> SAProgress::progressTotalUnitCount(double totalUnitCount) {
  struct Concrete : SAProgress {};
  auto progress = std::make_shared<Concrete>();
  progress->setTotalCount(totalUnitCount);
  return progress;
}

}  // namespace vidloom
