#include "support/FilterChain.h"

#include <utility>

#include "platform/process/LoadedLibrary.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/macros.h>
#include <libavutil/mem.h>
}

namespace kestrel {

namespace {

/// The library's calls.
struct Calls {
  decltype(&avfilter_graph_alloc) allocateGraph = nullptr;
  decltype(&avfilter_graph_free) freeGraph = nullptr;
  decltype(&avfilter_get_by_name) filterNamed = nullptr;
  decltype(&avfilter_graph_create_filter) createFilter = nullptr;
  decltype(&avfilter_link) link = nullptr;
  decltype(&avfilter_graph_config) configure = nullptr;
  decltype(&av_buffersrc_write_frame) writeFrame = nullptr;
  decltype(&av_buffersink_get_frame) getFrame = nullptr;
  decltype(&av_buffersink_get_time_base) getTimebase = nullptr;
  bool areAllThere = false;

  Calls() {
    LoadedLibrary library("libavfilter.so." AV_STRINGIFY(LIBAVFILTER_VERSION_MAJOR));
    library.find(allocateGraph, "avfilter_graph_alloc");
    library.find(freeGraph, "avfilter_graph_free");
    library.find(filterNamed, "avfilter_get_by_name");
    library.find(createFilter, "avfilter_graph_create_filter");
    library.find(link, "avfilter_link");
    library.find(configure, "avfilter_graph_config");
    library.find(writeFrame, "av_buffersrc_write_frame");
    library.find(getFrame, "av_buffersink_get_frame");
    library.find(getTimebase, "av_buffersink_get_time_base");
    areAllThere = library.isWhole();
  }
};

const Calls& calls() {
  static const Calls all;
  return all;
}

}  // namespace

void FilterChain::GraphDeleter::operator()(AVFilterGraph* graph) const {
  calls().freeGraph(&graph);
}

std::unique_ptr<FilterChain> FilterChain::make(const std::vector<Filter>& filters,
                                               const char* scaling) {
  if (!calls().areAllThere || filters.empty()) return nullptr;
  std::unique_ptr<FilterChain> chain(new FilterChain);
  chain->graph_.reset(calls().allocateGraph());
  AVFilterGraph* graph = chain->graph_.get();
  if (!graph) return nullptr;
  if (scaling) graph->scale_sws_opts = av_strdup(scaling);
  for (const auto& [name, arguments] : filters) {
    AVFilterContext* filter = nullptr;
    if (calls().createFilter(&filter, calls().filterNamed(name), name, arguments.c_str(), nullptr,
                             graph) < 0)
      return nullptr;
    if (chain->sink_ && calls().link(chain->sink_, 0, filter, 0) < 0) return nullptr;
    if (!chain->source_) chain->source_ = filter;
    chain->sink_ = filter;
  }
  return calls().configure(graph, nullptr) >= 0 ? std::move(chain) : nullptr;
}

bool FilterChain::push(const AVFrame* frame) { return calls().writeFrame(source_, frame) >= 0; }

bool FilterChain::pull(AVFrame& frame) {
  av_frame_unref(&frame);
  return calls().getFrame(sink_, &frame) >= 0;
}

AVRational FilterChain::timebase() const { return calls().getTimebase(sink_); }

}  // namespace kestrel
