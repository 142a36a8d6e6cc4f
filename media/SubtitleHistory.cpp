#include "media/SubtitleHistory.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

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

void SubtitleTexts::add(const SubtitleSpan& span, std::string markup) {
  constexpr size_t kMost = 1000;
  if (texts_.size() == kMost) texts_.pop_front();
  texts_.push_back({span, std::move(markup)});
}

void SubtitleTexts::forgetBefore(int64_t time) {
  std::erase_if(texts_, [time](const Text& text) {
    return text.span.start < time && time - text.span.start > text.span.duration;
  });
}

std::optional<std::string> SubtitleTexts::at(int64_t time) const {
  std::vector<std::string_view> shown;
  for (auto text = texts_.rbegin(); text != texts_.rend(); ++text)
    if (text->span.contains(time) && std::ranges::find(shown, text->markup) == shown.end())
      shown.push_back(text->markup);
  if (shown.empty()) return std::nullopt;
  return fmt::format("{}", fmt::join(shown, "\n"));
}

}  // namespace kestrel
