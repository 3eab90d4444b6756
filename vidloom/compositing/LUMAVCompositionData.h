// What a build gives: media layout, video composition and audio mix.
#pragma once

#include <memory>

#include "vidloom/platform/avfoundation/AVAudioMix.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"

namespace vidloom {

class LUMAVCompositionData {
 public:
  static std::shared_ptr<LUMAVCompositionData> initWithVideoComposition(std::shared_ptr<AVMutableVideoComposition> videoComposition,
                                                                        std::shared_ptr<AVMutableComposition> composition,
                                                                        std::shared_ptr<AVAudioMix> audioMix);

  const std::shared_ptr<AVMutableComposition>& composition() const { return composition_; }
  void setComposition(std::shared_ptr<AVMutableComposition> composition) { composition_ = std::move(composition); }
  const std::shared_ptr<AVMutableVideoComposition>& videoComposition() const { return videoComposition_; }
  void setVideoComposition(std::shared_ptr<AVMutableVideoComposition> videoComposition) {
    videoComposition_ = std::move(videoComposition);
  }
  /// Null after every build of the library.
  const std::shared_ptr<AVAudioMix>& audioMix() const { return audioMix_; }
  void setAudioMix(std::shared_ptr<AVAudioMix> audioMix) { audioMix_ = std::move(audioMix); }

 protected:
  LUMAVCompositionData() = default;

 private:
  std::shared_ptr<AVMutableComposition> composition_;
  std::shared_ptr<AVMutableVideoComposition> videoComposition_;
  std::shared_ptr<AVAudioMix> audioMix_;
};

}  // namespace vidloom
