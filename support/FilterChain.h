#pragma once

#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
#include <libavutil/rational.h>
}

namespace kestrel {

/// Filters of libavfilter in a row: frames go in at one end and come out at the other.
///
/// The library is loaded when the first chain is made: it brings thirty others along.
class FilterChain {
 public:
  struct Filter {
    const char* name = nullptr;
    std::string arguments;
  };

  /// From a "buffer" or "abuffer" to a "buffersink" or "abuffersink". `scaling`: the options of the
  /// conversions that the library puts between the filters, null for its usual ones. Null where the
  /// library is missing and where it refuses the chain.
  static std::unique_ptr<FilterChain> make(const std::vector<Filter>& filters,
                                           const char* scaling = nullptr);

  /// Takes a frame, which stays the caller's; null says that no more come. False where it is
  /// refused.
  bool push(const AVFrame* frame);

  /// Moves the next finished frame into `frame`, which lets go of what it held; false where there
  /// is none yet.
  bool pull(AVFrame& frame);

  /// Of the times of finished frames.
  AVRational timebase() const;

 private:
  struct GraphDeleter {
    void operator()(AVFilterGraph* graph) const;
  };

  FilterChain() = default;

  std::unique_ptr<AVFilterGraph, GraphDeleter> graph_;
  AVFilterContext* source_ = nullptr;  // both belong to the graph
  AVFilterContext* sink_ = nullptr;
};

}  // namespace kestrel
