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

bool SubtitleSpan::shows(int64_t time) const {
  return start != AV_NOPTS_VALUE && start <= time && time - start < duration;
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

void SubtitleTexts::Text::add(std::string line, const SubtitleStyles& styles) {
  if (!markup.empty()) markup += '\n';
  markup += subtitleMarkupOfLine(line, styles);
  isStyled = isStyled || isStyledLine(line);
  lines.push_back(std::move(line));
}

void SubtitleTexts::add(Text text) {
  constexpr size_t kMost = 1000;
  if (texts_.size() == kMost) {
    texts_.pop_front();
    if (taken_ > 0) --taken_;
  }
  texts_.push_back(std::move(text));
}

void SubtitleTexts::forgetBefore(int64_t time) {
  const auto isOver = [time](const Text& text) {
    return text.span.start < time && time - text.span.start > text.span.duration;
  };
  const auto taken = texts_.begin() + static_cast<std::ptrdiff_t>(taken_);
  taken_ -= static_cast<size_t>(std::count_if(texts_.begin(), taken, isOver));
  std::erase_if(texts_, isOver);
}

bool SubtitleTexts::areStyledAt(int64_t time) const {
  return std::ranges::any_of(
      texts_, [time](const Text& text) { return text.isStyled && text.span.shows(time); });
}

std::vector<SubtitleTexts::Text> SubtitleTexts::takeNew() {
  const auto first = texts_.begin() + static_cast<std::ptrdiff_t>(taken_);
  taken_ = texts_.size();
  return {first, texts_.end()};
}

void SubtitleTexts::clear() {
  texts_.clear();
  taken_ = 0;
}

std::optional<std::string> SubtitleTexts::at(int64_t time) const {
  return markupOf([time](const SubtitleSpan& span) { return span.contains(time); });
}

std::optional<std::string> SubtitleTexts::shownAt(int64_t time) const {
  return markupOf([time](const SubtitleSpan& span) { return span.shows(time); });
}

std::optional<std::string> SubtitleTexts::markupOf(
    const std::function<bool(const SubtitleSpan&)>& isShown) const {
  std::vector<std::string_view> shown;
  for (auto text = texts_.rbegin(); text != texts_.rend(); ++text)
    if (isShown(text->span) && std::ranges::find(shown, text->markup) == shown.end())
      shown.push_back(text->markup);
  if (shown.empty()) return std::nullopt;
  return fmt::format("{}", fmt::join(shown, "\n"));
}

}  // namespace kestrel
