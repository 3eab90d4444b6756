// Edits of tracks whose times come from their packets.
#pragma once

#include "vidloom/platform/ffmpeg/MovieHeader.h"
#include "vidloom/platform/ffmpeg/PacketScan.h"

namespace vidloom {

/// One stream of a file that has no index we read ourselves.
struct ScannedTrack {
  MediaTrack* track = nullptr;
  TrackSource* source = nullptr;
  const ScannedStream* scan = nullptr;
};

/// Fills the edits, ranges and sound positions of all tracks of a file: asset time zero is the earliest time of any of them, and
/// each keeps its distance to it.
void placeScannedTracks(const std::vector<ScannedTrack>& tracks);

}  // namespace vidloom
