#include "vidloom/platform/reading/FrameGatherer.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/avfoundation/CIFilterInstruction.h"

namespace vidloom {

namespace {

bool isForFilter(const std::shared_ptr<AVVideoCompositionInstruction>& instruction) {
  return std::dynamic_pointer_cast<CIFilterInstruction>(instruction) != nullptr;
}

int pixels(double length, float scale) { return static_cast<int>(std::lround(length * static_cast<double>(scale))); }

}  // namespace

CGAffineTransform FrameGatherer::fitting(const CGSize& size, int width, int height) {
  const double scale = std::min(width / size.width, height / size.height);
  return {scale, 0, 0, scale, (width - size.width * scale) / 2, (height - size.height * scale) / 2};
}

FrameGatherer::FrameGatherer(const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks,
                             std::shared_ptr<const AVMutableVideoComposition> composition, VideoDecoderPool::Opener opener)
    : composition_(std::move(composition)),
      pool_(std::move(opener)),
      width_(pixels(composition_->renderSize().width, composition_->renderScale())),
      height_(pixels(composition_->renderSize().height, composition_->renderScale())) {
  tracks_.reserve(videoTracks.size());
  for (const auto& track : videoTracks) {
    trackNumbers_.emplace(track->trackID(), tracks_.size());
    tracks_.push_back({track->trackID(), VideoCursor(static_cast<int>(tracks_.size()), track->mediaSegments(), pool_)});
  }
}

std::optional<GatheredFrame> FrameGatherer::gather(const CMTime& time, const ExactTime& exactTime, std::optional<NSError>* error) {
  pool_.beginRound();
  GatheredFrame frame;
  frame.time = time;
  frame.instruction = instructionAt(time);
  if (!frame.instruction) return frame;
  frame.isPostProcessed = frame.instruction->enablePostProcessing();
  bool isComplete = true;
  const auto builtIn = std::dynamic_pointer_cast<AVMutableVideoCompositionInstruction>(frame.instruction);
  if (frame.instruction->passthroughTrackID() != kCMPersistentTrackID_Invalid) {
    isComplete = gatherPassthrough(frame.instruction->passthroughTrackID(), exactTime, frame, error);
  } else if (composition_->customVideoCompositorClass() || isForFilter(frame.instruction)) {
    frame.isForCompositor = true;
    isComplete = gatherSources(*frame.instruction, exactTime, frame, error);
  } else if (builtIn) {
    isComplete = gatherLayers(*builtIn, exactTime, frame, error);
  }
  if (!isComplete) return std::nullopt;
  return frame;
}

std::shared_ptr<AVVideoCompositionInstruction> FrameGatherer::instructionAt(const CMTime& time) {
  const auto& instructions = composition_->instructions();
  const auto covers = [&](const auto& instruction) {
    return instruction && CMTimeRangeContainsTime(instruction->timeRange(), time);
  };
  for (size_t step = 0; step < instructions.size(); ++step) {
    const size_t index = (currentInstruction_ + step) % instructions.size();
    if (!covers(instructions[index])) continue;
    currentInstruction_ = index;
    return instructions[index];
  }
  return nullptr;
}

VideoCursor* FrameGatherer::cursorOf(CMPersistentTrackID trackID) {
  const auto found = trackNumbers_.find(trackID);
  return found == trackNumbers_.end() ? nullptr : &tracks_[found->second].cursor;
}

bool FrameGatherer::gatherSources(const AVVideoCompositionInstruction& instruction, const ExactTime& time, GatheredFrame& frame,
                                  std::optional<NSError>* error) {
  const auto add = [&](CMPersistentTrackID trackID, VideoCursor& cursor) {
    std::optional<NSError> failure;
    if (auto source = cursor.pictureAt(time, &failure)) frame.sources.push_back({trackID, std::move(*source)});
    if (failure && error) *error = failure;
    return !failure;
  };
  const auto required = instruction.requiredSourceTrackIDs();
  if (!required) {
    return std::all_of(tracks_.begin(), tracks_.end(), [&](Track& track) { return add(track.trackID, track.cursor); });
  }
  return std::all_of(required->begin(), required->end(), [&](CMPersistentTrackID trackID) {
    const bool isKnown = std::none_of(frame.sources.begin(), frame.sources.end(),
                                      [&](const SourceFrame& source) { return source.trackID == trackID; });
    VideoCursor* cursor = isKnown ? cursorOf(trackID) : nullptr;
    return !cursor || add(trackID, *cursor);
  });
}

bool FrameGatherer::gatherLayers(const AVMutableVideoCompositionInstruction& instruction, const ExactTime& time,
                                 GatheredFrame& frame, std::optional<NSError>* error) {
  const auto& layers = instruction.layerInstructions();
  const auto scale = static_cast<double>(composition_->renderScale());
  for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer) {
    const float opacity = (*layer)->opacityAt(frame.time);
    VideoCursor* cursor = opacity > 0 ? cursorOf((*layer)->trackID()) : nullptr;
    const std::optional<CGSize> size = cursor ? cursor->displaySizeAt(time) : std::nullopt;
    if (!size) continue;
    const CGAffineTransform transform =
        CGAffineTransformConcat((*layer)->transformAt(frame.time), CGAffineTransform{scale, 0, 0, scale, 0, 0});
    if (!isInSight(*size, transform)) continue;
    std::optional<NSError> failure;
    const std::optional<SourcePicture> source = cursor->pictureAt(time, &failure);
    if (failure) {
      if (error) *error = failure;
      return false;
    }
    if (source) frame.layers.push_back({source->picture, source->displaySize, transform, std::min(1.0, double{opacity})});
  }
  return true;
}

bool FrameGatherer::gatherPassthrough(CMPersistentTrackID trackID, const ExactTime& time, GatheredFrame& frame,
                                      std::optional<NSError>* error) {
  VideoCursor* cursor = cursorOf(trackID);
  if (!cursor) return true;
  std::optional<NSError> failure;
  const std::optional<SourcePicture> source = cursor->pictureAt(time, &failure);
  if (source) frame.layers.push_back({source->picture, source->displaySize, fitting(source->displaySize, width_, height_), 1});
  if (failure && error) *error = failure;
  return !failure;
}

bool FrameGatherer::isInSight(const CGSize& displaySize, const CGAffineTransform& transform) const {
  if (transform.a * transform.d - transform.b * transform.c == 0) return false;
  const double width = displaySize.width, height = displaySize.height;
  const double left = transform.tx + std::min(0.0, transform.a * width) + std::min(0.0, transform.c * height);
  const double right = transform.tx + std::max(0.0, transform.a * width) + std::max(0.0, transform.c * height);
  const double top = transform.ty + std::min(0.0, transform.b * width) + std::min(0.0, transform.d * height);
  const double bottom = transform.ty + std::max(0.0, transform.b * width) + std::max(0.0, transform.d * height);
  return left < width_ && right > 0 && top < height_ && bottom > 0;
}

}  // namespace vidloom
