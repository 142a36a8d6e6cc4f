#include <kestrel/LMDVDTitle.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kestrel {

const char* nameOf(LMDVDTrackKind kind) {
  switch (kind) {
    case LMDVDTrackKind::kUnspecified:
      return "";
    case LMDVDTrackKind::kNormal:
      return "normal";
    case LMDVDTrackKind::kVisuallyImpaired:
      return "visually-impaired";
    case LMDVDTrackKind::kCommentary:
      return "commentary";
    case LMDVDTrackKind::kAlternateCommentary:
      return "alternate-commentary";
    case LMDVDTrackKind::kLarge:
      return "large";
    case LMDVDTrackKind::kChildren:
      return "children";
    case LMDVDTrackKind::kCaptions:
      return "captions";
    case LMDVDTrackKind::kLargeCaptions:
      return "large-captions";
    case LMDVDTrackKind::kChildrensCaptions:
      return "children-captions";
    case LMDVDTrackKind::kForced:
      return "forced";
    case LMDVDTrackKind::kLargeCommentary:
      return "large-commentary";
    case LMDVDTrackKind::kChildrensCommentary:
      return "children-commentary";
  }
  return "";
}

const std::vector<LMDVDCell>& LMDVDTitle::cells(int32_t angle) const {
  return cells_[static_cast<size_t>(std::clamp(angle, 1, angles()) - 1)];
}

void LMDVDTitle::setCells(std::vector<std::vector<LMDVDCell>> angles) {
  cells_ = std::move(angles);
  if (cells_.empty()) cells_.emplace_back();
}

uint32_t LMDVDTitle::sector_count() const {
  uint32_t count = 0;
  for (const auto& media : medias_) count += static_cast<uint32_t>(media->sector_count());
  return count;
}

std::string LMDVDTitle::description() const {
  return fmt::format("title:{} count:{}", title_, static_cast<int32_t>(sector_count()));
}

std::vector<int64_t> LMDVDTitle::chapterTimes() const {
  std::vector<int64_t> times;
  int64_t time = 0;
  size_t cell = 0;
  for (const size_t first : chapters_) {
    for (; cell < first && cell < cells().size(); ++cell) time += cells()[cell].duration;
    times.push_back(time);
  }
  return times;
}

}  // namespace kestrel
