#include "vidloom/platform/ffmpeg/AvInputPointers.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace vidloom {

void AvInputDeleter::operator()(AVFormatContext* context) const { avformat_close_input(&context); }
void AvInputDeleter::operator()(AVIOContext* context) const {
  av_freep(&context->buffer);
  avio_context_free(&context);
}
void AvInputDeleter::operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
void AvInputDeleter::operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
void AvInputDeleter::operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
void AvInputDeleter::operator()(SwsContext* scaler) const { sws_freeContext(scaler); }

}  // namespace vidloom
