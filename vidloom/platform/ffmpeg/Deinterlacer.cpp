#include "vidloom/platform/ffmpeg/Deinterlacer.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

namespace vidloom {

Deinterlacer::Deinterlacer(FrameDecoder& decoder) : decoder_(decoder), active_(decoder.packets().track().interlaced) {}

void Deinterlacer::reset() {
  graph_.reset();
  ended_ = false;
}

FrameDecoder::Status Deinterlacer::next(DecodedFrame& decoded) {
  while (true) {
    if (graph_) {
      const FrameDecoder::Status status = pull(decoded);
      if (status == FrameDecoder::Status::frame || ended_) return status;
    }
    const FrameDecoder::Status status = decoder_.next(decoded);
    if (status == FrameDecoder::Status::end && graph_) {
      ended_ = true;
      graph_->push(nullptr);
      continue;
    }
    if (status != FrameDecoder::Status::frame) return status;
    active_ = active_ || decoded.frame->interlaced_frame != 0;
    // What is not shown must not be blended into what is.
    const bool isLeading = decoder_.isLeading(decoded);
    if (!active_ || decoded.isDamaged || decoded.isUnrecovered || isLeading || !prepare(decoded)) return status;
    decoded.frame->pts = decoded.pts;
    if (graph_->push(decoded.frame.get()) < 0) return status;
    av_frame_unref(decoded.frame.get());
  }
}

bool Deinterlacer::prepare(const DecodedFrame& decoded) {
  const TrackSource& source = decoder_.packets().source();
  const FilterGraph::Input input = FilterGraph::inputOf(*decoded.frame, source.numerator, source.denominator);
  if (graph_ && graph_->input() == input) return true;
  int avError = 0;
  graph_ = FilterGraph::make("bwdif=mode=send_frame:deint=interlaced", input, avError);
  return graph_ != nullptr;
}

FrameDecoder::Status Deinterlacer::pull(DecodedFrame& decoded) {
  if (!decoded.frame) decoded.frame.reset(av_frame_alloc());
  if (!decoded.frame || graph_->pull(*decoded.frame) < 0) return FrameDecoder::Status::end;
  decoded.pts = decoded.frame->pts;
  decoded.isDamaged = decoded.isUnrecovered = false;
  return FrameDecoder::Status::frame;
}

}  // namespace vidloom
