// Owners of libav objects.
#pragma once

#include <memory>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace vidloom {

struct AvDeleter {
  void operator()(AVCodecContext* context) const;
  void operator()(AVFrame* frame) const;
  void operator()(AVPacket* packet) const;
  void operator()(SwrContext* resampler) const;
};

using AvCodecContextPointer = std::unique_ptr<AVCodecContext, AvDeleter>;
using AvFramePointer = std::unique_ptr<AVFrame, AvDeleter>;
using AvPacketPointer = std::unique_ptr<AVPacket, AvDeleter>;
using SwrContextPointer = std::unique_ptr<SwrContext, AvDeleter>;

}  // namespace vidloom
