#include "tools/FrameRun.h"

#include <optional>
#include <string>

#include "hostkit/TimeText.h"
#include "hostkit/TimelineDrawer.h"
#include "tools/Console.h"
#include "tools/DataOutput.h"
#include "tools/OutputFile.h"
#include "tools/ProjectOpening.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/timeline/LUMComposition.h"

namespace vidloom {
namespace {

/// The last step of the grid at or before the time.
CMTime stepAt(const CMTime& time, uint64_t fps) {
  return CMTimeConvertScale(time, static_cast<CMTimeScale>(fps), CMTimeRoundingMethod::kRoundTowardZero);
}

std::shared_ptr<LUMAVCompositionData> build(const std::shared_ptr<LUMComposition>& timeline,
                                            const std::shared_ptr<TimelineDrawer>& drawer, bool native) {
  if (native) return LUMAVComposition::buildNativeCompositionData(timeline);
  drawer->takeTimeline(timeline);
  const auto data = LUMAVComposition::buildCompositionData(timeline);
  for (const auto& instruction : data->videoComposition()->instructions()) {
    if (const auto pipeline = std::dynamic_pointer_cast<LUMAVCompositionInstruction>(instruction)) pipeline->setDelegate(drawer);
  }
  return data;
}

/// The frame that starts at that step; null with an error.
CVPixelBufferRef frameAt(const LUMAVCompositionData& data, const CMTime& step, std::optional<NSError>* error) {
  const auto reader = AVAssetReader::initWithAsset(data.composition(), error);
  if (!reader) return nullptr;
  const NSDictionary settings{{kCVPixelBufferPixelFormatTypeKey, int64_t{kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}}};
  const auto output =
      AVAssetReaderVideoCompositionOutput::initWithVideoTracks(data.composition()->tracksWithMediaType(AVMediaTypeVideo), settings);
  output->setVideoComposition(data.videoComposition());
  reader->addOutput(output);
  reader->setTimeRange(CMTimeRangeMake(step, data.videoComposition()->frameDuration()));
  const CMSampleBufferRef sample = reader->startReading() ? output->copyNextSampleBuffer() : nullptr;
  if (sample) return CMSampleBufferGetImageBuffer(sample);
  *error = reader->error().value_or(AVMakeError(AVErrorUnknown, "there is no frame at that time"));
  return nullptr;
}

/// The planes row by row, without what pads the rows; empty where they cannot be had.
std::string planesOf(const CVPixelBufferRef& frame) {
  std::string planes;
  if (CVPixelBufferLockBaseAddress(frame, kCVPixelBufferLock_ReadOnly) != kCVReturnSuccess) return planes;
  for (const size_t plane : {0U, 1U}) {
    const auto* row = static_cast<const char*>(CVPixelBufferGetBaseAddressOfPlane(frame, plane));
    const size_t samples = plane == 0 ? 1 : 2;
    for (size_t y = 0; y < CVPixelBufferGetHeightOfPlane(frame, plane); ++y) {
      planes.append(row, samples * CVPixelBufferGetWidthOfPlane(frame, plane));
      row += CVPixelBufferGetBytesPerRowOfPlane(frame, plane);
    }
  }
  CVPixelBufferUnlockBaseAddress(frame, kCVPixelBufferLock_ReadOnly);
  return planes;
}

ExitCode write(const CVPixelBufferRef& frame, const std::filesystem::path& output) {
  std::string cause = "no memory for the picture";
  if (output.extension() == ".png") {
    std::optional<NSError> error;
    if (CGImageWritePNG(CGImageCreateWithPixelBuffer(frame), behindLink(output), &error)) return ExitCode::done;
    cause = error ? textOf(*error) : "the picture cannot be written";
  } else {
    const std::string planes = planesOf(frame);
    if (!planes.empty()) return writeData(output, planes);
  }
  Console::message(cause.find(output.filename().string()) == std::string::npos ? output.string() + ": " + cause : cause);
  return ExitCode::output;
}

}  // namespace

ExitCode runFrame(const FrameOptions& options) {
  const OpenedProject opened = openProject(options.project, {.allowOutside = options.allowOutside, .native = options.native});
  if (opened.timeline == nullptr) return ExitCode::input;
  const std::string problem = problemWithFileOf(*opened.file, options.output);
  if (!problem.empty()) {
    Console::message(problem);
    return ExitCode::output;
  }
  if (CMTimeCompare(options.time, opened.timeline->duration()) >= 0) {
    Console::message("TIME: the timeline ends at " + exactTextFromTime(opened.timeline->duration()) + " s, before or at that time");
    return ExitCode::usage;
  }
  const auto drawer = TimelineDrawer::init();
  const auto data = build(opened.timeline, drawer, options.native);
  if (data->composition()->tracksWithMediaType(AVMediaTypeVideo).empty()) {
    Console::message(options.project.string() + ": " + kNothingToShow);
    return ExitCode::input;
  }
  std::optional<NSError> error;
  const CVPixelBufferRef frame = frameAt(*data, stepAt(options.time, opened.timeline->fps()), &error);
  if (frame) return write(frame, options.output);
  Console::message(textOf(*error));
  return exitCodeOf(*error);
}

}  // namespace vidloom
