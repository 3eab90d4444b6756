// Owners of the libav objects that reading needs beyond AvPointers.
#pragma once

#include <memory>

struct AVCodecParameters;
struct AVCodecParserContext;
struct AVFilterGraph;
struct AVFormatContext;
struct AVIOContext;
struct SwsContext;

namespace vidloom {

struct AvInputDeleter {
  void operator()(AVFormatContext* context) const;  ///< an opened input; its AVIOContext is not touched
  void operator()(AVIOContext* context) const;      ///< with its buffer
  void operator()(AVCodecParameters* parameters) const;
  void operator()(AVCodecParserContext* parser) const;
  void operator()(AVFilterGraph* graph) const;
  void operator()(SwsContext* scaler) const;
};

using AvFormatInputPointer = std::unique_ptr<AVFormatContext, AvInputDeleter>;
using AvIOPointer = std::unique_ptr<AVIOContext, AvInputDeleter>;
using AvCodecParametersPointer = std::unique_ptr<AVCodecParameters, AvInputDeleter>;
using AvParserPointer = std::unique_ptr<AVCodecParserContext, AvInputDeleter>;
using AvFilterGraphPointer = std::unique_ptr<AVFilterGraph, AvInputDeleter>;
using SwsContextPointer = std::unique_ptr<SwsContext, AvInputDeleter>;

}  // namespace vidloom
