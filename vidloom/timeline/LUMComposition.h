// The timeline: an output size, a frame rate and an ordered list of instructions.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

class AVVideoCompositionCoreAnimationTool;
class LUMInstruction;
class LUMTrack;

/// Editing and reading a timeline by ids. Unknown ids give null and change nothing.
class LUMCompositionProtocol {
 public:
  virtual ~LUMCompositionProtocol() = default;
  virtual void addInstructions(const std::vector<std::shared_ptr<LUMInstruction>>& instructions) = 0;
  virtual void addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks, uint64_t instructionId) = 0;
  virtual std::shared_ptr<LUMInstruction> removeInstruction(uint64_t instructionId) = 0;
  virtual std::shared_ptr<LUMInstruction> getInstruction(uint64_t instructionId) const = 0;
  virtual std::shared_ptr<LUMInstruction> getInstructionForTrackAtId(uint64_t trackId) const = 0;
  virtual std::shared_ptr<LUMTrack> getTrack(uint64_t trackId, uint64_t instructionId) const = 0;
  virtual std::shared_ptr<LUMTrack> removeTrack(uint64_t trackId, uint64_t instructionId) = 0;
  virtual std::vector<std::shared_ptr<LUMInstruction>> getCompositionInstructions() const = 0;
  virtual std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time) const = 0;
};

/// Nothing is checked: ids, instructions and tracks may be there several times. Edited on one thread; not while it is rendered or
/// played.
class LUMComposition : public LUMCompositionProtocol {
 public:
  static std::shared_ptr<LUMComposition> initWithSize(const CGSize& size, uint64_t fps);

  const CGSize& renderSize() const { return renderSize_; }
  void updateRenderSize(const CGSize& renderSize) { renderSize_ = renderSize; }
  uint64_t fps() const { return fps_; }
  void updateFPS(uint64_t fps) { fps_ = fps; }
  /// In order of insertion, never sorted.
  std::vector<std::shared_ptr<LUMInstruction>>& instructions() { return instructions_; }
  const std::vector<std::shared_ptr<LUMInstruction>>& instructions() const { return instructions_; }
  void setInstructions(std::vector<std::shared_ptr<LUMInstruction>> instructions) { instructions_ = std::move(instructions); }
  /// The host's own.
  NSDictionary& userInfo() { return userInfo_; }
  const NSDictionary& userInfo() const { return userInfo_; }
  void setUserInfo(NSDictionary userInfo) { userInfo_ = std::move(userInfo); }
  /// Colour tags for the video composition; nullopt: the platform's choice.
  const std::optional<std::string>& colorPrimaries() const { return colorPrimaries_; }
  void setColorPrimaries(std::optional<std::string> colorPrimaries) { colorPrimaries_ = std::move(colorPrimaries); }
  const std::optional<std::string>& colorYCbCrMatrix() const { return colorYCbCrMatrix_; }
  void setColorYCbCrMatrix(std::optional<std::string> colorYCbCrMatrix) { colorYCbCrMatrix_ = std::move(colorYCbCrMatrix); }
  const std::optional<std::string>& colorTransferFunction() const { return colorTransferFunction_; }
  void setColorTransferFunction(std::optional<std::string> value) { colorTransferFunction_ = std::move(value); }
  /// Handed to the video composition.
  const std::shared_ptr<AVVideoCompositionCoreAnimationTool>& coreAnimationTool() const { return coreAnimationTool_; }
  void setCoreAnimationTool(std::shared_ptr<AVVideoCompositionCoreAnimationTool> tool) { coreAnimationTool_ = std::move(tool); }
  /// Handed to the compositor's instructions.
  bool enablePostProcessing() const { return enablePostProcessing_; }
  void setEnablePostProcessing(bool enablePostProcessing) { enablePostProcessing_ = enablePostProcessing; }

  void addInstructions(const std::vector<std::shared_ptr<LUMInstruction>>& instructions) override;
  void addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks, uint64_t instructionId) override;
  /// Takes out every occurrence of the first instruction with that id and returns it.
  std::shared_ptr<LUMInstruction> removeInstruction(uint64_t instructionId) override;
  std::shared_ptr<LUMInstruction> getInstruction(uint64_t instructionId) const override;
  /// The first instruction with that id.
  std::shared_ptr<LUMInstruction> INSTRUCTION_AT_ID(uint64_t instructionId) const;
  /// The first instruction that holds a track with that id.
  std::shared_ptr<LUMInstruction> getInstructionForTrackAtId(uint64_t trackId) const override;
  std::shared_ptr<LUMTrack> getTrack(uint64_t trackId, uint64_t instructionId) const override;
  std::shared_ptr<LUMTrack> removeTrack(uint64_t trackId, uint64_t instructionId) override;
  std::vector<std::shared_ptr<LUMTrack>> allTracks() const;
  std::vector<std::shared_ptr<LUMInstruction>> getCompositionInstructions() const override { return instructions_; }
  /// The instructions whose range holds the time, both ends included; with `fps` by frame numbers.
  std::vector<std::shared_ptr<LUMInstruction>> INSTRUCTIONS_AT_TIME(const CMTime& time) const;
  std::vector<std::shared_ptr<LUMInstruction>> INSTRUCTIONS_AT_TIME(const CMTime& time, uint64_t fps) const;
  /// The tracks at a time of the composition, by frame numbers at its rate. Where two instructions meet both answer.
  std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time) const override;
  /// That of the longest instruction; where the instructions begin takes no part.
  CMTime duration() const;
  /// Brings the durations of all instructions up to date.
  void invalidate();
  /// No instruction holds a track.
  bool isEmpty() const;
  /// How many tracks (int64_t) there are of each class, by class name, and three entries whose key is the value and whose value
  /// (std::string) is the name: fps as "FPS", the render size as "SIZE", the whole seconds of the duration as "DURATION". Of
  /// equal keys the later one stays.
  NSDictionary mapRepresentation() const;

 protected:
  LUMComposition() = default;

 private:
  CGSize renderSize_;
  uint64_t fps_ = 0;
  std::vector<std::shared_ptr<LUMInstruction>> instructions_;
  NSDictionary userInfo_;
  std::optional<std::string> colorPrimaries_, colorYCbCrMatrix_, colorTransferFunction_;
  std::shared_ptr<AVVideoCompositionCoreAnimationTool> coreAnimationTool_;
  bool enablePostProcessing_ = false;
};

}  // namespace vidloom
