#include "media/Deinterlacer.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include "support/FFmpegCompat.h"

namespace kestrel {

bool Deinterlacer::fits(const AVFrame& picture) const {
  return graph_ && picture.width == width_ && picture.height == height_ &&
         picture.format == format_;
}

bool Deinterlacer::build(const AVFrame& picture) {
  graph_.reset(avfilter_graph_alloc());
  width_ = picture.width;
  height_ = picture.height;
  format_ = picture.format;
  const std::string input = fmt::format("video_size={}x{}:pix_fmt={}:time_base={}/{}", width_,
                                        height_, format_, timebase_.num, timebase_.den);
  const std::string settings = fmt::format("mode=send_frame:parity=auto:deint={}",
                                           mode_ == Deinterlacing::kOn ? "all" : "interlaced");
  AVFilterContext* filter = nullptr;
  const auto add = [&](AVFilterContext*& made, const char* name, const std::string& arguments) {
    return graph_ && avfilter_graph_create_filter(&made, avfilter_get_by_name(name), nullptr,
                                                  arguments.c_str(), nullptr, graph_.get()) >= 0;
  };
  const bool isBuilt = add(source_, "buffer", input) && add(filter, "bwdif", settings) &&
                       add(sink_, "buffersink", "") && avfilter_link(source_, 0, filter, 0) >= 0 &&
                       avfilter_link(filter, 0, sink_, 0) >= 0 &&
                       avfilter_graph_config(graph_.get(), nullptr) >= 0;
  if (!isBuilt) graph_.reset();
  return isBuilt;
}

std::vector<FramePtr> Deinterlacer::collect() {
  std::vector<FramePtr> finished;
  const AVRational own = av_buffersink_get_time_base(sink_);
  for (;;) {
    FramePtr picture = makeFrame();
    if (!picture || av_buffersink_get_frame(sink_, picture.get()) < 0) return finished;
    picture->pts = av_rescale_q(picture->pts, own, timebase_);
    finished.push_back(std::move(picture));
  }
}

std::vector<FramePtr> Deinterlacer::push(FramePtr picture) {
  std::vector<FramePtr> finished;
  if (!fits(*picture)) {
    finished = finish();
    build(*picture);
  }
  if (!graph_ || av_buffersrc_write_frame(source_, picture.get()) < 0) {
    finished.push_back(std::move(picture));
    return finished;
  }
  std::ranges::move(collect(), std::back_inserter(finished));
  return finished;
}

std::vector<FramePtr> Deinterlacer::finish() {
  if (!graph_) return {};
  std::vector<FramePtr> finished;
  if (av_buffersrc_write_frame(source_, nullptr) >= 0) finished = collect();
  graph_.reset();
  return finished;
}

}  // namespace kestrel
