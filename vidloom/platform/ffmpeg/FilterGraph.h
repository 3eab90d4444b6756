// A chain of libav filters for the pictures of one track.
#pragma once

#include <string>

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"

struct AVFilterContext;

namespace vidloom {

/// Runs on the caller's thread. Made for frames of one size and format.
class FilterGraph {
 public:
  struct Input {
    int width = 0, height = 0, format = -1;
    int numerator = 1, denominator = 1;  ///< of a tick of the frames' times, in seconds
    friend bool operator==(const Input&, const Input&) = default;
  };
  static Input inputOf(const AVFrame& frame, int numerator, int denominator);

  /// A chain in libav's notation, "bwdif=deint=interlaced,format=yuv420p". Null with a libav error.
  static std::unique_ptr<FilterGraph> make(const std::string& chain, const Input& input, int& avError);

  const Input& input() const { return input_; }
  /// Takes a reference of the frame; null ends the input. A libav error or 0.
  int push(AVFrame* frame);
  /// AVERROR(EAGAIN) where more input is needed, AVERROR_EOF at the end. Times are in the input's ticks.
  int pull(AVFrame& frame);

 private:
  FilterGraph(AvFilterGraphPointer graph, const Input& input) : graph_(std::move(graph)), input_(input) {}
  int connect(const std::string& chain);

  AvFilterGraphPointer graph_;
  Input input_;
  AVFilterContext* source_ = nullptr;  // the graph's
  AVFilterContext* sink_ = nullptr;    // the graph's
};

}  // namespace vidloom
