#include "support/SubtitleMarkup.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace kestrel {

namespace {

struct Style {
  char letter;
  bool TextRun::*flag;
};

constexpr std::array kStyles = {Style{'b', &TextRun::bold}, Style{'i', &TextRun::italic},
                                Style{'u', &TextRun::underline},
                                Style{'s', &TextRun::strikethrough}};

constexpr std::array<std::pair<std::string_view, char>, 3> kEntities = {
    {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}}};

/// The style whose letter stands, with a ">" after it, at the start of `text`.
std::optional<size_t> styleAt(std::string_view text) {
  if (text.size() < 2 || text[1] != '>') return std::nullopt;
  const auto found = std::ranges::find_if(kStyles, [&](const Style& style) {
    return text[0] == style.letter || text[0] == style.letter - 'a' + 'A';
  });
  if (found == kStyles.end()) return std::nullopt;
  return static_cast<size_t>(found - kStyles.begin());
}

/// Where each style has been opened and not yet closed, outermost first.
using OpenPlaces = std::array<std::vector<size_t>, kStyles.size()>;

void close(MarkedText& marked, OpenPlaces& open, size_t style) {
  if (open[style].empty()) return;
  TextRun run{.location = open[style].back()};
  run.length = marked.text.size() - run.location;
  run.*kStyles[style].flag = true;
  open[style].pop_back();
  if (run.length > 0) marked.runs.push_back(run);
}

/// Takes one mark or one entity off the front of `source`; false where there is none.
bool takeMark(std::string_view& source, MarkedText& marked, OpenPlaces& open) {
  for (const auto& [entity, character] : kEntities) {
    if (!source.starts_with(entity)) continue;
    marked.text.push_back(character);
    source.remove_prefix(entity.size());
    return true;
  }
  const bool isEnd = source.starts_with("</");
  if (!source.starts_with('<')) return false;
  const size_t start = isEnd ? 2 : 1;
  const auto style = styleAt(source.substr(start));
  if (!style) return false;
  if (isEnd)
    close(marked, open, *style);
  else
    open[*style].push_back(marked.text.size());
  source.remove_prefix(start + 2);
  return true;
}

}  // namespace

MarkedText readSubtitleMarkup(std::string_view source) {
  MarkedText marked;
  OpenPlaces open;
  while (!source.empty()) {
    if (takeMark(source, marked, open)) continue;
    const size_t next = std::min(source.find_first_of("<&", 1), source.size());
    marked.text.append(source.substr(0, next));
    source.remove_prefix(next);
  }
  for (size_t style = 0; style < open.size(); ++style)
    while (!open[style].empty()) close(marked, open, style);
  return marked;
}

}  // namespace kestrel
