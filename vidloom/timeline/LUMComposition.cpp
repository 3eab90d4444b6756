#include "vidloom/timeline/LUMComposition.h"

#include <algorithm>
#include <limits>

#include "vidloom/platform/foundation/NSClassName.h"
#include "vidloom/timeline/LUMGlobal.h"
#include "vidloom/timeline/LUMInstruction.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

namespace {

/// Toward zero; no number is 0, what does not fit the nearest that does.
int32_t wholeSeconds(const CMTime& time) {
  const double seconds = CMTimeGetSeconds(time);
  if (seconds != seconds) return 0;
  if (seconds >= 0x1p31) return std::numeric_limits<int32_t>::max();
  return seconds <= -0x1p31 ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(seconds);
}

}  // namespace

std::shared_ptr<LUMComposition> LUMComposition::initWithSize(const CGSize& size, uint64_t fps) {
  auto composition = std::make_shared<LUMComposition>(LUMComposition());
  composition->renderSize_ = size;
  composition->fps_ = fps;
  return composition;
}

void LUMComposition::addInstructions(const std::vector<std::shared_ptr<LUMInstruction>>& instructions) {
  std::copy_if(instructions.begin(), instructions.end(), std::back_inserter(instructions_),
               [](const auto& instruction) { return instruction != nullptr; });
}

void LUMComposition::addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks, uint64_t instructionId) {
  if (const auto instruction = INSTRUCTION_AT_ID(instructionId)) instruction->addTracks(tracks);
}

std::shared_ptr<LUMInstruction> LUMComposition::removeInstruction(uint64_t instructionId) {
  const std::shared_ptr<LUMInstruction> instruction = INSTRUCTION_AT_ID(instructionId);
  if (instruction) std::erase(instructions_, instruction);
  return instruction;
}

std::shared_ptr<LUMInstruction> LUMComposition::getInstruction(uint64_t instructionId) const {
  return INSTRUCTION_AT_ID(instructionId);
}

std::shared_ptr<LUMInstruction> LUMComposition::INSTRUCTION_AT_ID(uint64_t instructionId) const {
  const auto found = std::find_if(instructions_.begin(), instructions_.end(),
                                  [instructionId](const auto& instruction) { return instruction->objectId() == instructionId; });
  return found == instructions_.end() ? nullptr : *found;
}

std::shared_ptr<LUMInstruction> LUMComposition::getInstructionForTrackAtId(uint64_t trackId) const {
  for (const auto& instruction : getCompositionInstructions()) {
    if (instruction->getTrack(trackId)) return instruction;
  }
  return nullptr;
}

std::shared_ptr<LUMTrack> LUMComposition::getTrack(uint64_t trackId, uint64_t instructionId) const {
  const auto instruction = INSTRUCTION_AT_ID(instructionId);
  return instruction ? instruction->getTrack(trackId) : nullptr;
}

std::shared_ptr<LUMTrack> LUMComposition::removeTrack(uint64_t trackId, uint64_t instructionId) {
  const auto instruction = INSTRUCTION_AT_ID(instructionId);
  return instruction ? instruction->removeTrack(trackId) : nullptr;
}

std::vector<std::shared_ptr<LUMTrack>> LUMComposition::allTracks() const {
  std::vector<std::shared_ptr<LUMTrack>> all;
  for (const auto& instruction : instructions_) {
    const auto tracks = instruction->getAllTracks();
    all.insert(all.end(), tracks.begin(), tracks.end());
  }
  return all;
}

std::vector<std::shared_ptr<LUMInstruction>> LUMComposition::INSTRUCTIONS_AT_TIME(const CMTime& time) const {
  std::vector<std::shared_ptr<LUMInstruction>> found;
  for (const auto& instruction : instructions_) {
    if (LUMGlobal::CMTIMERANGE_CONTAINS_TIME(instruction->timeRange(), time)) found.push_back(instruction);
  }
  return found;
}

std::vector<std::shared_ptr<LUMInstruction>> LUMComposition::INSTRUCTIONS_AT_TIME(const CMTime& time, uint64_t fps) const {
  std::vector<std::shared_ptr<LUMInstruction>> found;
  for (const auto& instruction : instructions_) {
    if (LUMGlobal::CMTIMERANGE_CONTAINS_TIME(fps, instruction->timeRange(), time)) found.push_back(instruction);
  }
  return found;
}

std::vector<std::shared_ptr<LUMTrack>> LUMComposition::tracksForTime(const CMTime& time) const {
  std::vector<std::shared_ptr<LUMTrack>> found;
  for (const auto& instruction : INSTRUCTIONS_AT_TIME(time, fps_)) {
    const auto tracks = instruction->tracksForTime(CMTimeSubtract(time, instruction->start()), fps_);
    found.insert(found.end(), tracks.begin(), tracks.end());
  }
  return found;
}

CMTime LUMComposition::duration() const {
  CMTime longest = kCMTimeZero;
  for (const auto& instruction : instructions_) {
    if (CMTimeCompare(instruction->duration(), longest) > 0) longest = instruction->duration();
  }
  return longest;
}

void LUMComposition::invalidate() {
  for (const auto& instruction : instructions_) instruction->invalidate();
}

bool LUMComposition::isEmpty() const {
  return std::all_of(instructions_.begin(), instructions_.end(),
                     [](const auto& instruction) { return instruction->getAllTracks().empty(); });
}

NSDictionary LUMComposition::mapRepresentation() const {
  std::map<std::string, int64_t> counts;
  for (const auto& instruction : instructions_) {
    for (const auto& track : instruction->tracks()) {
      const LUMTrack& object = *track;
      ++counts[NSStringFromClass(typeid(object))];
    }
  }
  NSDictionary map(counts.begin(), counts.end());
  map[std::to_string(fps_)] = std::string("FPS");
  map[NSStringFromCGSize(renderSize_)] = std::string("SIZE");
  map[std::to_string(wholeSeconds(duration()))] = std::string("DURATION");
  return map;
}

}  // namespace vidloom
