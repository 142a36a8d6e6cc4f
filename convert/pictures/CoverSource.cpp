#include "convert/pictures/CoverSource.h"

#include <kestrel/LMCustomSource.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

class CoverSource final : public LMCustomSource {
 public:
  explicit CoverSource(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<CoverSource>(bytes_);
  }

  int64_t filesize() const override { return static_cast<int64_t>(bytes_.size()); }

  int32_t read(uint8_t* buffer, int32_t size) override {
    const int64_t offset = std::clamp<int64_t>(read_offset(), 0, filesize());
    const auto count = static_cast<int32_t>(std::min<int64_t>(size, filesize() - offset));
    std::copy_n(bytes_.begin() + offset, count, buffer);
    return count;
  }

 private:
  const std::vector<uint8_t> bytes_;
};

}  // namespace

std::shared_ptr<LMMediaSource> makeCoverSource(const AVStream& cover) {
  const AVPacket& packet = cover.attached_pic;
  return std::make_shared<CoverSource>(
      std::vector<uint8_t>(packet.data, packet.data + packet.size));
}

}  // namespace kestrel
