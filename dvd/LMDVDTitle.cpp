#include <kestrel/LMDVDTitle.h>

#include <fmt/format.h>

namespace kestrel {

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
    for (; cell < first && cell < cells_.size(); ++cell) time += cells_[cell].duration;
    times.push_back(time);
  }
  return times;
}

}  // namespace kestrel
