#include <kestrel/LMDVDMedia.h>

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

std::shared_ptr<LMDVDMedia> LMDVDMedia::subMediaAt(int32_t start, uint32_t count) const {
  // Ends are counted in 32 bits, as everywhere on a disc.
  const auto endOf = [](int32_t first, uint32_t sectors) {
    return static_cast<int32_t>(static_cast<uint32_t>(first) + sectors);
  };
  const int32_t first = std::max(start_sector(), start);
  const int32_t end =
      std::min(endOf(start_sector(), static_cast<uint32_t>(sector_count())), endOf(start, count));
  const int64_t length = int64_t{end} - first;
  if (length < 1) return nullptr;
  return std::make_shared<LMDVDMedia>(first, static_cast<int32_t>(length));
}

std::string LMDVDMedia::description() const {
  return fmt::format("start:{} count:{}", start_sector(), sector_count());
}

}  // namespace kestrel
