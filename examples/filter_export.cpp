// Writes a clip through an image filter to a movie: filter_export IN OUT.mp4
#include <cstdio>

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVAsynchronousCIImageFilteringRequest.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

using namespace vidloom;

namespace {

/// Called for every frame, on a queue of the platform.
void makeSepia(const std::shared_ptr<AVAsynchronousCIImageFilteringRequest>& request) {
  std::optional<NSError> error;
  const auto sepia = request->sourceImage()->imageByApplyingFilter("CISepiaTone", {{"inputIntensity", 0.9}}, &error);
  if (sepia)
    request->finishWithImage(sepia, nullptr);
  else
    request->finishWithError(error.value_or(NSError{}));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto clip = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(argv[1]), 1);
  const auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks({clip});
  const auto timeline = LUMComposition::initWithSize(clip->transformSize(), 30);
  timeline->addInstructions({instruction});

  const auto data = LUMAVComposition::buildNativeCompositionWithCIFilterBlock(timeline, makeSepia);
  const auto render = LUMRender::initWithData(data, timeline, argv[2]);
  render->setUseNativeComposition(true);
  const auto delegate = std::make_shared<LUMRenderDelegate>();
  int result = 1;
  delegate->renderDidCompleteWithURL = [&](const std::filesystem::path&) {
    result = render->writer()->status() == AVAssetWriterStatusCompleted ? 0 : 1;
    RunLoop::main().stop();
  };
  delegate->renderDidFailedWithError = [](const NSError& error) {
    const auto cause = error.underlyingError();
    std::printf("%s\n", (cause ? *cause : error).localizedDescription().c_str());
    RunLoop::main().stop();
  };
  render->setDelegate(delegate);
  render->generate();
  if (!render->setUpError()) RunLoop::main().run();
  return result;
}
