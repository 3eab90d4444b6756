// How much sound the last packet of a stream gives.
#pragma once

#include "vidloom/platform/ffmpeg/MediaFile.h"

struct AVPacket;
struct AVStream;

namespace vidloom {

/// Samples of a channel that decoding the packet alone gives; zero where it cannot be decoded: files are cut off, or end in
/// something else. Nullopt where a packet alone does not tell.
std::optional<int> framesInLastPacket(const AVStream& stream, const AVPacket& packet, double sampleRate, const MediaLimits& limits);

}  // namespace vidloom
