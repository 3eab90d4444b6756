#include "vidloom/platform/ffmpeg/FilterGraph.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
}

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

/// One loose end of the graph, named as the parser wants it.
AVFilterInOut* looseEnd(const char* name, AVFilterContext* filter) {
  AVFilterInOut* end = avfilter_inout_alloc();
  if (!end) return nullptr;
  end->name = av_strdup(name);
  end->filter_ctx = filter;
  return end;
}

}  // namespace

FilterGraph::Input FilterGraph::inputOf(const AVFrame& frame, int numerator, int denominator) {
  return {frame.width, frame.height, frame.format, numerator, denominator};
}

std::unique_ptr<FilterGraph> FilterGraph::make(const std::string& chain, const Input& input, int& avError) {
  AvFilterGraphPointer graph(avfilter_graph_alloc());
  avError = graph ? 0 : AVERROR(ENOMEM);
  if (!graph) return nullptr;
  graph->nb_threads = 1;
  std::unique_ptr<FilterGraph> made(new FilterGraph(std::move(graph), input));
  avError = made->connect(chain);
  return avError < 0 ? nullptr : std::move(made);
}

int FilterGraph::connect(const std::string& chain) {
  AVFilterGraph* graph = graph_.get();
  const std::string source = NSStringWithFormat("video_size=%dx%d:pix_fmt=%d:time_base=%d/%d", input_.width, input_.height,
                                                input_.format, input_.numerator, input_.denominator);
  int result = avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in", source.c_str(), nullptr, graph);
  if (result < 0) return result;
  result = avfilter_graph_create_filter(&sink_, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr, graph);
  if (result < 0) return result;
  AVFilterInOut* outputs = looseEnd("in", source_);
  AVFilterInOut* inputs = looseEnd("out", sink_);
  result = outputs && inputs ? avfilter_graph_parse_ptr(graph, chain.c_str(), &inputs, &outputs, nullptr) : AVERROR(ENOMEM);
  avfilter_inout_free(&inputs);
  avfilter_inout_free(&outputs);
  return result < 0 ? result : avfilter_graph_config(graph, nullptr);
}

int FilterGraph::push(AVFrame* frame) { return av_buffersrc_add_frame_flags(source_, frame, AV_BUFFERSRC_FLAG_KEEP_REF); }

int FilterGraph::pull(AVFrame& frame) {
  const int result = av_buffersink_get_frame(sink_, &frame);
  if (result < 0) return result;
  if (frame.pts != AV_NOPTS_VALUE) {
    frame.pts = av_rescale_q(frame.pts, av_buffersink_get_time_base(sink_), {input_.numerator, input_.denominator});
  }
  return 0;
}

}  // namespace vidloom
