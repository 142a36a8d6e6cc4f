#include "media/SubtitleHistory.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/avutil.h>
}

namespace kestrel {

bool SubtitleSpan::contains(int64_t time) const {
  return start != AV_NOPTS_VALUE && start < time && time - start < duration;
}

void SubtitleHistory::add(const SubtitleSpan& span, std::shared_ptr<const Image> image) {
  if (span.start == AV_NOPTS_VALUE) return;
  while (!subtitles_.empty() && subtitles_.back().span.start >= span.start) subtitles_.pop_back();
  subtitles_.push_back({span, std::move(image)});
}

void SubtitleHistory::forgetBefore(int64_t time) {
  while (subtitles_.size() > 1 && subtitles_[1].span.start <= time) subtitles_.pop_front();
}

std::shared_ptr<const Image> SubtitleHistory::at(int64_t time) const {
  const auto last = std::find_if(subtitles_.rbegin(), subtitles_.rend(),
                                 [time](const auto& one) { return one.span.start < time; });
  return last != subtitles_.rend() && last->span.contains(time) ? last->image : nullptr;
}

}  // namespace kestrel
