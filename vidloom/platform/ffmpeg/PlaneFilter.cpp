#include "vidloom/platform/ffmpeg/PlaneFilter.h"

#include "vidloom/platform/ffmpeg/AvLog.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace vidloom {

namespace {

constexpr size_t kKeptGraphs = 4;
constexpr std::array<int, kBgraPlaneCount> kFramePlanes{1, 0, 2, 3};  // libav keeps G, B, R, A

/// A frame that looks at the planes; read only, so that filters do not work in place.
AvFramePointer wrap(const BgraPlaneViews& planes, bool isOpaque) {
  AvFramePointer frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->format = isOpaque ? AV_PIX_FMT_GBRP : AV_PIX_FMT_GBRAP;
  frame->width = planes[0].width;
  frame->height = planes[0].height;
  frame->pts = 0;
  for (size_t i = 0; i < planes.size() - (isOpaque ? 1 : 0); ++i) {
    auto* data = const_cast<uint8_t*>(planes[i].data);
    const int index = kFramePlanes[i];
    frame->data[index] = data;
    frame->linesize[index] = static_cast<int>(planes[i].stride);
    const auto keep = [](void*, uint8_t*) {};
    frame->buf[index] = av_buffer_create(data, static_cast<size_t>(planes[i].stride) * static_cast<size_t>(planes[i].height), keep,
                                         nullptr, AV_BUFFER_FLAG_READONLY);
    if (!frame->buf[index]) return nullptr;
  }
  return frame;
}

/// A copy where the filters handed the planes on as they came: those belong to the caller.
int detach(AVFrame& frame) { return av_frame_make_writable(&frame); }

}  // namespace

bool PlaneFilter::run(const std::string& chain, const BgraPlaneViews& planes, bool isOpaque, FilteredPlanes& result,
                      std::string& problem) {
  AvLog::install();
  const AvFramePointer input = wrap(planes, isOpaque);
  AvFramePointer output(av_frame_alloc());
  int avError = input && output ? 0 : AVERROR(ENOMEM);
  std::unique_ptr<FilterGraph> graph;
  if (avError == 0) graph = take(chain, FilterGraph::inputOf(*input, 1, 1), avError);
  if (graph) avError = graph->push(input.get());
  if (graph && avError >= 0) avError = graph->pull(*output);
  if (avError >= 0) avError = detach(*output);
  if (avError >= 0 && (output->width != planes[0].width || output->height != planes[0].height)) avError = AVERROR_BUG;
  if (avError < 0) {
    problem = AvLog::words(avError);
    return false;
  }
  giveBack(chain, std::move(graph));
  for (size_t i = 0; i < planes.size() - (isOpaque ? 1 : 0); ++i) {
    const int index = kFramePlanes[i];
    result.planes[i] = {output->data[index], output->linesize[index], output->width, output->height};
  }
  result.owner = std::shared_ptr<AVFrame>(std::move(output));
  return true;
}

std::unique_ptr<FilterGraph> PlaneFilter::take(const std::string& chain, const FilterGraph::Input& input, int& avError) {
  {
    const std::lock_guard lock(mutex_);
    for (auto kept = graphs_.begin(); kept != graphs_.end(); ++kept) {
      if (kept->chain != chain || !(kept->graph->input() == input)) continue;
      auto graph = std::move(kept->graph);
      graphs_.erase(kept);
      return graph;
    }
  }
  return FilterGraph::make(chain + ",format=" + av_get_pix_fmt_name(static_cast<AVPixelFormat>(input.format)), input, avError);
}

void PlaneFilter::giveBack(const std::string& chain, std::unique_ptr<FilterGraph> graph) {
  std::list<Graph> dropped;
  const std::lock_guard lock(mutex_);
  graphs_.push_front({chain, std::move(graph)});
  if (graphs_.size() > kKeptGraphs) dropped.splice(dropped.end(), graphs_, std::prev(graphs_.end()));
}

}  // namespace vidloom
