#include "convert/cut/CutPlan.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace kestrel {

namespace {

using Entry = IndexedPicture::Entry;

/// A picture that is shown for longer than so many usual durations stands still; what follows it
/// does not say how long it is wanted.
constexpr int64_t kStill = 2;

bool isUsable(const IndexedPicture& picture, const CutWay& way) {
  return picture.entry == Entry::kClean || (picture.entry == Entry::kOpen && way.startsOpen);
}

/// Plans one span.
class SpanPlanner {
 public:
  SpanPlanner(const PictureIndex& index, TickSpan span, const CutWay& way, size_t window,
              PicturePlan& plan)
      : pictures_(index.pictures), span_(span), way_(way), window_(window), plan_(plan) {}

  void run() {
    for (size_t i = 0; i < pictures_.size(); ++i)
      if (isAsked(i)) asked_.push_back(i);
    size_t from = asked_.front();
    while (!way_.encodesAll) {
      const auto entry = nextEntry(from);
      if (!entry) break;
      const size_t end = endOfCopy(*entry);
      from = std::max(*entry + 1, end);
      if (end == *entry) continue;
      encode(beginOf(*entry), plan_.stretches.size() == before_ && copied_ == 0
                                  ? "they lie before the span's first key picture"
                                  : "what they need is hidden");
      copy(*entry, end);
    }
    std::string why = way_.why;
    if (why.empty())
      why = copied_ > 0 ? "they need pictures behind the span's end"
                        : "no group of pictures lies within the span";
    encode(INT64_MAX, why);
  }

 private:
  bool isAsked(size_t i) const {
    const IndexedPicture& picture = pictures_[i];
    return !picture.isHidden && picture.shown >= span_.start && picture.shown < span_.end;
  }

  /// Whether a picture is decoded behind an open entry and shown before it.
  bool leads(size_t i, size_t entry) const {
    return pictures_[entry].entry == Entry::kOpen && pictures_[i].shown < pictures_[entry].shown;
  }

  /// The first time at which a copy that begins with an entry shows something.
  int64_t beginOf(size_t entry) const {
    int64_t begin = pictures_[entry].shown;
    if (pictures_[entry].entry != Entry::kClean) return begin;
    for (size_t i = entry + 1; i < pictures_.size() && pictures_[i].entry == Entry::kNone; ++i)
      begin = std::min(begin, pictures_[i].shown);
    return begin;
  }

  std::optional<size_t> nextEntry(size_t from) const {
    for (size_t i = from; i <= asked_.back(); ++i) {
      if (isUsable(pictures_[i], way_) && isAsked(i) &&
          beginOf(i) >= std::max(span_.start, handled_))
        return i;
    }
    return std::nullopt;
  }

  /// Where a copy ends, in the order of decoding: nothing in it is left out, and all of it is shown
  /// before what is asked for and not in it.
  size_t endOfCopy(size_t entry) const {
    size_t end = entry;
    while (end < pictures_.size() && (leads(end, entry) || isAsked(end))) ++end;
    int64_t earliest = INT64_MAX;  // of what is behind
    for (size_t i = asked_.back() + 1; i > end; --i)
      if (isAsked(i - 1) && !leads(i - 1, entry))
        earliest = std::min(earliest, pictures_[i - 1].shown);
    std::vector<int64_t> latest(end - entry + 1, INT64_MIN);
    for (size_t i = entry; i < end; ++i)
      latest[i - entry + 1] =
          leads(i, entry) ? latest[i - entry] : std::max(latest[i - entry], pictures_[i].shown);
    while (end > entry && latest[end - entry] > earliest) {
      --end;
      if (!leads(end, entry)) earliest = std::min(earliest, pictures_[end].shown);
    }
    return end;
  }

  void copy(size_t entry, size_t end) {
    PictureRun stretch{.window = window_, .first = plan_.pictures.size()};
    for (size_t i = entry; i < end; ++i)
      if (!leads(i, entry)) add(i);
    copied_ = plan_.pictures.size() - stretch.first;
    stretch.count = copied_;
    plan_.stretches.push_back(std::move(stretch));
  }

  /// Encodes what is not yet planned and shown before a time.
  void encode(int64_t before, std::string why) {
    PictureRun stretch{.isEncoded = true,
                       .window = window_,
                       .first = plan_.pictures.size(),
                       .why = std::move(why)};
    std::vector<size_t> encoded;
    for (const size_t i : asked_)
      if (pictures_[i].shown >= handled_ && pictures_[i].shown < before) encoded.push_back(i);
    std::ranges::sort(encoded, {}, [&](size_t i) { return pictures_[i].shown; });
    for (const size_t i : encoded) add(i);
    stretch.count = encoded.size();
    if (!encoded.empty()) plan_.stretches.push_back(std::move(stretch));
  }

  void add(size_t i) {
    plan_.pictures.push_back({.index = i, .source = pictures_[i].shown});
    handled_ = std::max(handled_, pictures_[i].shown + 1);
  }

  const std::vector<IndexedPicture>& pictures_;
  const TickSpan span_;
  const CutWay& way_;
  const size_t window_;
  PicturePlan& plan_;
  const size_t before_ = plan_.stretches.size();
  std::vector<size_t> asked_;  // in the order of decoding
  int64_t handled_ = INT64_MIN;
  size_t copied_ = 0;
};

/// The span widened to whole groups: from the last entry before it to where nothing that has been
/// decoded is shown later than what has not.
TickSpan widened(const PictureIndex& index, TickSpan span, const CutWay& way) {
  const auto& pictures = index.pictures;
  std::optional<size_t> entry;
  for (size_t i = 0; i < pictures.size(); ++i)
    if (isUsable(pictures[i], way) && (!entry || pictures[i].shown <= span.start)) entry = i;
  if (!entry) return span;
  span.start = pictures[*entry].shown;
  std::vector<int64_t> earliest(pictures.size() + 1, INT64_MAX);  // of a picture and all behind it
  for (size_t i = pictures.size(); i > *entry; --i)
    earliest[i - 1] = std::min(earliest[i], pictures[i - 1].shown);
  int64_t latest = INT64_MIN;
  for (size_t i = *entry; i <= pictures.size(); ++i) {
    if (earliest[i] >= span.end && earliest[i] > latest) {
      span.end = earliest[i];
      break;
    }
    latest = std::max(latest, pictures[i].shown);
  }
  return span;
}

/// All of them; those that then reach into each other are one.
std::vector<TickSpan> allWidened(const PictureIndex& index, const std::vector<TickSpan>& spans,
                                 const CutWay& way) {
  std::vector<TickSpan> wide;
  for (const TickSpan& span : spans) {
    const TickSpan own = widened(index, span, way);
    if (!wide.empty() && own.start < wide.back().end)
      wide.back().end = std::max(wide.back().end, own.end);
    else
      wide.push_back(own);
  }
  return wide;
}

/// When the last picture of a span ends.
int64_t endOf(const PictureIndex& index, const TickSpan& span, int64_t last) {
  const int64_t next = index.nextTime(last);
  int64_t own = index.usualDuration;
  if (next == INT64_MAX) {
    for (const IndexedPicture& picture : index.pictures)
      if (picture.shown == last && picture.duration > 0) own = picture.duration;
    return last + own;
  }
  const bool isStill = next - last > kStill * index.usualDuration;
  return isStill ? std::min(next, std::max(span.end, last + own)) : next;
}

/// Gives each picture its times in the result. All are decoded as much before they are shown as the
/// one that has to be most.
void stamp(PicturePlan& plan) {
  std::vector<int64_t> order;
  for (size_t i = 0; i < plan.pictures.size(); ++i) {
    const CutWindow& window = plan.windows[plan.stretchOf(i).window];
    plan.pictures[i].shown = plan.pictures[i].source - window.start + window.place;
    order.push_back(plan.pictures[i].shown);
  }
  std::ranges::sort(order);
  int64_t delay = 0;
  for (size_t i = 0; i < order.size(); ++i)
    delay = std::max(delay, order[i] - plan.pictures[i].shown);
  order.push_back(plan.windows.back().place + plan.windows.back().length());
  for (size_t i = 0; i < plan.pictures.size(); ++i) {
    PlannedPicture& picture = plan.pictures[i];
    picture.decoded = order[i] - delay;
    picture.duration = *std::ranges::upper_bound(order, picture.shown) - picture.shown;
  }
}

}  // namespace

const PictureRun& PicturePlan::stretchOf(size_t picture) const {
  const auto behind = std::ranges::upper_bound(stretches, picture, {}, &PictureRun::first);
  return *(behind - 1);
}

int64_t PicturePlan::encoded() const {
  int64_t count = 0;
  for (const PictureRun& stretch : stretches)
    if (stretch.isEncoded) count += static_cast<int64_t>(stretch.count);
  return count;
}

PicturePlan planPictures(const PictureIndex& index, const std::vector<TickSpan>& spans,
                         const CutWay& way) {
  PicturePlan plan;
  for (const TickSpan& span : way.keepsGroups ? allWidened(index, spans, way) : spans) {
    const auto first = std::ranges::lower_bound(index.shown, span.start);
    const auto behind = std::ranges::lower_bound(index.shown, span.end);
    if (first >= behind) continue;
    SpanPlanner(index, span, way, plan.windows.size(), plan).run();
    CutWindow window{.start = *first, .end = endOf(index, span, *(behind - 1))};
    if (!plan.windows.empty())
      window.place = plan.windows.back().place + plan.windows.back().length();
    plan.windows.push_back(window);
  }
  if (!plan.windows.empty()) stamp(plan);
  return plan;
}

}  // namespace kestrel
