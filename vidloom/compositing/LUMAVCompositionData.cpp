#include "vidloom/compositing/LUMAVCompositionData.h"

namespace vidloom {

std::shared_ptr<LUMAVCompositionData> LUMAVCompositionData::initWithVideoComposition(
    std::shared_ptr<AVMutableVideoComposition> videoComposition, std::shared_ptr<AVMutableComposition> composition,
    std::shared_ptr<AVAudioMix> audioMix) {
  struct Concrete : LUMAVCompositionData {};
  auto data = std::make_shared<Concrete>();
  data->videoComposition_ = std::move(videoComposition);
  data->composition_ = std::move(composition);
  data->audioMix_ = std::move(audioMix);
  return data;
}

}  // namespace vidloom
