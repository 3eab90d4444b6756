// Speeds that leave a track without a length.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace vidloom {

class LUMTrack;

/// What is wrong with a track's speed, with the track's id and the place in its content: a speed of zero, below zero or without
/// bounds, or a curve too long to be cut into segments. Nullopt for tracks that can be played, among them all without a scale
/// context and those whose trims leave nothing.
std::optional<std::string> speedProblemOf(const std::shared_ptr<const LUMTrack>& track);

}  // namespace vidloom
