#include "platform/image/hdr/ColorTable.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <thread>

#include "platform/image/plan/WorkerPool.h"

namespace kestrel {

namespace {

int threadsOfMachine() {
  const auto threads = static_cast<int>(std::thread::hardware_concurrency());
  return std::clamp(threads, 1, WorkerPool::kMostThreads);
}

/// The tables that were used last, the newest first.
class Tables {
 public:
  template <typename Make>
  std::shared_ptr<const ColorTable> of(const HdrLight& light, const Make& make) {
    const std::lock_guard lock(mutex_);
    const auto found =
        std::ranges::find_if(entries_, [&](const Entry& entry) { return entry.light == light; });
    if (found != entries_.end()) {
      std::rotate(entries_.begin(), found, found + 1);
    } else {
      entries_.insert(entries_.begin(), {light, std::make_shared<const ColorTable>(make(light))});
      if (entries_.size() > kMost) entries_.pop_back();
    }
    return entries_.front().table;
  }

 private:
  static constexpr size_t kMost = 4;

  struct Entry {
    HdrLight light;
    std::shared_ptr<const ColorTable> table;
  };

  std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace

ColorTable::ColorTable(double most, const Mapping& mapping)
    : colors_(size_t{4} * kSide * kSide * kSide), most_(most) {
  const auto sampleOf = [most](int i) { return most * i / (kSide - 1); };
  WorkerPool::shared().run(kSide, threadsOfMachine(), [&](int red, int /*worker*/) {
    int16_t* color = colors_.data() + ptrdiff_t{4} * red * kSide * kSide;
    for (int green = 0; green < kSide; ++green) {
      for (int blue = 0; blue < kSide; ++blue) {
        for (const double value : mapping({sampleOf(red), sampleOf(green), sampleOf(blue)}))
          *color++ = static_cast<int16_t>(
              std::lround(std::clamp(value, 0.0, 1.0) * kernels::ColorCube::kOne));
        ++color;
      }
    }
  });
}

kernels::ColorCube ColorTable::cube() const {
  return {colors_.data(), kSide, static_cast<float>((kSide - 1) / most_)};
}

std::shared_ptr<const ColorTable> tableToSdr(const HdrLight& light) {
  static Tables tables;
  return tables.of(light, [](const HdrLight& wanted) {
    const SdrMapping mapping(wanted);
    return ColorTable(mapping.mostSample(), [&](const Triple& samples) {
      return mapping(lightOf(samples, wanted, kDimHlgPeak));
    });
  });
}

std::shared_ptr<const ColorTable> tableToHdr(const HdrLight& light) {
  static Tables tables;
  return tables.of(light, [](const HdrLight& wanted) {
    return ColorTable(1, [&](const Triple& sdr) { return hdrSamplesOf(sdr, wanted); });
  });
}

}  // namespace kestrel
