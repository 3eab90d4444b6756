#include "vidloom/compositing/AVMutableCompositionTrack_Item.h"

namespace vidloom {

std::shared_ptr<AVMutableCompositionTrack_Item> AVMutableCompositionTrack_Item::initWithTrack(
    std::shared_ptr<AVMutableCompositionTrack> track, AVMediaType mediaType) {
  struct Concrete : AVMutableCompositionTrack_Item {};
  auto item = std::make_shared<Concrete>();
  item->track_ = std::move(track);
  item->mediaType_ = std::move(mediaType);
  return item;
}

}  // namespace vidloom
