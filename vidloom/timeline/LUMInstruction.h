// One slot of a timeline: an ordered list of tracks.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class LUMTrack;

/// Editing and reading an instruction's tracks. Unknown ids give null.
class LUMInstructionProtocol {
 public:
  virtual ~LUMInstructionProtocol() = default;
  virtual std::shared_ptr<LUMTrack> getTrack(uint64_t trackId) const = 0;
  virtual std::shared_ptr<LUMTrack> removeTrack(uint64_t trackId) = 0;
  virtual void addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks) = 0;
  virtual std::vector<std::shared_ptr<LUMTrack>> getInstructionTracks() const = 0;
  virtual std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time) const = 0;
  virtual std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time, uint64_t fps) const = 0;
  virtual std::vector<std::shared_ptr<LUMTrack>> getAllTracks() const = 0;
};

/// Nothing is checked: ids and tracks may be there several times. Edited on one thread; not while it is rendered or played.
class LUMInstruction : public LUMInstructionProtocol {
 public:
  /// Null where the id registry refuses the id, which it never does.
  static std::shared_ptr<LUMInstruction> initWithId(uint64_t objectId);

  uint64_t objectId() const { return objectId_; }
  /// In order of insertion. Whoever edits the list or a track's times calls invalidate() afterwards.
  std::vector<std::shared_ptr<LUMTrack>>& tracks() { return tracks_; }
  const std::vector<std::shared_ptr<LUMTrack>>& tracks() const { return tracks_; }
  void setTracks(std::vector<std::shared_ptr<LUMTrack>> tracks) { tracks_ = std::move(tracks); }
  /// Where the instruction begins; only the host sets it.
  const CMTime& start() const { return start_; }
  void setStart(const CMTime& start) { start_ = start; }
  /// The latest end of the tracks, measured from the instruction's start.
  const CMTime& duration() const { return duration_; }
  CMTimeRange timeRange() const { return {start_, duration_}; }

  void addTracks(const std::vector<std::shared_ptr<LUMTrack>>& tracks) override;
  /// The first track with that id.
  std::shared_ptr<LUMTrack> getTrack(uint64_t trackId) const override { return TRACK_AT_ID(trackId); }
  std::shared_ptr<LUMTrack> TRACK_AT_ID(uint64_t trackId) const;
  /// Takes out every occurrence of the first track with that id and returns it.
  std::shared_ptr<LUMTrack> removeTrack(uint64_t trackId) override;
  void invalidate() { updateDuration(); }
  void updateDuration();
  std::vector<std::shared_ptr<LUMTrack>> getAllTracks() const override { return tracks_; }
  std::vector<std::shared_ptr<LUMTrack>> getInstructionTracks() const override { return tracks_; }
  /// The tracks whose place holds `time`, which counts from the instruction's start; both ends included.
  std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time) const override;
  /// The same by frame numbers at `fps`.
  std::vector<std::shared_ptr<LUMTrack>> tracksForTime(const CMTime& time, uint64_t fps) const override;

 protected:
  LUMInstruction() = default;
  bool prepareWithId(uint64_t objectId);

 private:
  uint64_t objectId_ = 0;
  std::vector<std::shared_ptr<LUMTrack>> tracks_;
  CMTime start_;
  CMTime duration_;
};

}  // namespace vidloom
