// Writes a clip to a movie, blurred most in the middle of each second: export_filtered IN OUT.mp4
#include <cmath>
#include <cstdio>

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/coreimage/CIContext.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

using namespace vidloom;

namespace {

using Request = AVAsynchronousCIImageFilteringRequest;

/// Called on a queue of the library, for several frames before the first is answered.
void filter(const std::shared_ptr<Request>& request, const std::shared_ptr<CIContext>& context) {
  const double seconds = CMTimeGetSeconds(request->compositionTime());
  const double radius = 8 * std::abs(std::sin(seconds * 3.14159265));
  if (radius < 0.5) return request->finishWithImage(request->sourceImage(), nullptr);  // passed on untouched
  std::optional<NSError> error;
  const CIImageRef blurred =
      request->sourceImage()->imageByClampingToExtent()->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", radius}}, &error);
  if (!blurred) return request->finishWithError(*error);
  request->finishWithImage(blurred, context);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto clip = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(argv[1]), 1);
  const auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks({clip});
  const auto timeline = LUMComposition::initWithSize(clip->aspectSize(), 30);
  timeline->addInstructions({instruction});

  const auto context = CIContext::context();
  const auto data = LUMAVComposition::buildNativeCompositionWithCIFilterBlock(
      timeline, [context](const std::shared_ptr<Request>& request) { filter(request, context); });
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
