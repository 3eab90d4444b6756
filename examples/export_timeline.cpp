// Writes a clip without its first half second to a movie: export_timeline IN OUT.mp4
#include <cstdio>

#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

using namespace vidloom;

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto clip = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(argv[1]), 1);
  clip->setLeftTrimOffset(CMTimeMake(1, 2));
  const auto instruction = LUMInstruction::initWithId(1);
  instruction->addTracks({clip});
  const auto timeline = LUMComposition::initWithSize(clip->aspectSize(), 30);
  timeline->addInstructions({instruction});

  const auto render = LUMRender::initWithComposition(timeline, argv[2]);
  render->setUseNativeComposition(true);
  const auto delegate = std::make_shared<LUMRenderDelegate>();
  int result = 1;
  delegate->renderDidUpdateProgress = [](double percent) { std::printf("\r%.0f %%", percent); };
  delegate->renderDidCompleteWithURL = [&](const std::filesystem::path&) {
    result = render->writer()->status() == AVAssetWriterStatusCompleted ? 0 : 1;
    RunLoop::main().stop();
  };
  delegate->renderDidFailedWithError = [](const NSError& error) {
    std::printf("\n%s\n", error.localizedDescription().c_str());
    RunLoop::main().stop();
  };
  render->setDelegate(delegate);
  render->generate();
  if (!render->setUpError()) RunLoop::main().run();
  return result;
}
