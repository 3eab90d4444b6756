#include "vidloom/platform/avfoundation/AVVideoComposition.h"

namespace vidloom {

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::videoComposition() {
  return std::make_shared<AVMutableVideoComposition>(AVMutableVideoComposition());
}

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::copy() const {
  return std::make_shared<AVMutableVideoComposition>(*this);
}

}  // namespace vidloom
