#include "Tempo.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "Failure.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace {

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr double kSlowest = 0.5;  // what one filter can do
constexpr double kFastest = 100;

struct FrameDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

/// Filters in a row that make up the rate together.
std::string chainFor(double rate) {
  std::string chain;
  while (rate < kSlowest) {
    chain += fmt::format("atempo={},", kSlowest);
    rate /= kSlowest;
  }
  return chain + fmt::format("atempo={:.9f},aformat=sample_fmts=flt:channel_layouts=stereo",
                             std::min(rate, kFastest));
}

}  // namespace

struct Tempo::Graph {
  AVFilterGraph* graph = avfilter_graph_alloc();
  AVFilterContext* source = nullptr;
  AVFilterContext* sink = nullptr;
  int64_t time = 0;

  explicit Graph(double rate) {
    const std::string input =
        fmt::format("sample_rate={0}:time_base=1/{0}:sample_fmt=flt:channel_layout=stereo", kRate);
    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    int result = graph && outputs && inputs ? 0 : AVERROR(ENOMEM);
    if (result >= 0)
      result = avfilter_graph_create_filter(&source, avfilter_get_by_name("abuffer"), "in",
                                            input.c_str(), nullptr, graph);
    if (result >= 0)
      result = avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out",
                                            nullptr, nullptr, graph);
    if (result >= 0) {
      *outputs = {av_strdup("in"), source, 0, nullptr};
      *inputs = {av_strdup("out"), sink, 0, nullptr};
      result = avfilter_graph_parse_ptr(graph, chainFor(rate).c_str(), &inputs, &outputs, nullptr);
    }
    if (result >= 0) result = avfilter_graph_config(graph, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (result >= 0) return;
    avfilter_graph_free(&graph);
    throw Failure{kFailed, fmt::format("cannot play at {} times the speed", rate)};
  }
  ~Graph() { avfilter_graph_free(&graph); }
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;
};

Tempo::Tempo(double rate) : graph_(std::make_unique<Graph>(rate)) {}

Tempo::~Tempo() = default;

void Tempo::write(const float* data, int32_t frames) {
  const FramePtr frame(av_frame_alloc());
  if (frames > 0) {
    frame->format = AV_SAMPLE_FMT_FLT;
    frame->sample_rate = kRate;
    av_channel_layout_default(&frame->ch_layout, kChannels);
    frame->nb_samples = frames;
    frame->pts = graph_->time;
    if (av_frame_get_buffer(frame.get(), 0) < 0) throw Failure{kFailed, "not enough memory"};
    std::memcpy(frame->data[0], data, sizeof(float) * kChannels * static_cast<size_t>(frames));
    graph_->time += frames;
  }
  if (av_buffersrc_add_frame(graph_->source, frames > 0 ? frame.get() : nullptr) < 0) return;
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(taken_));
  taken_ = 0;
  const FramePtr result(av_frame_alloc());
  while (av_buffersink_get_frame(graph_->sink, result.get()) >= 0) {
    const auto* samples = reinterpret_cast<const float*>(result->data[0]);
    waiting_.insert(waiting_.end(), samples,
                    samples + static_cast<size_t>(result->nb_samples) * kChannels);
    av_frame_unref(result.get());
  }
}

int32_t Tempo::read(float* data, int32_t frames) {
  const size_t count = std::min(waiting_.size() - taken_, static_cast<size_t>(frames) * kChannels);
  std::copy_n(waiting_.begin() + static_cast<std::ptrdiff_t>(taken_), count, data);
  taken_ += count;
  return static_cast<int32_t>(count / kChannels);
}
