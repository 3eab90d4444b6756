#include "vidloom/timeline/LUMAVTextAttributeTrack.h"

namespace vidloom {

std::shared_ptr<LUMAVTextAttributeTrack> LUMAVTextAttributeTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMAVTextAttributeTrack>(LUMAVTextAttributeTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

}  // namespace vidloom
