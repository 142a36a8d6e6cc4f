#include <kestrel/LMWavSource.h>

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

#include "sources/SourceSettings.h"

namespace kestrel {

namespace {

constexpr int32_t kHeaderSize = 56;
constexpr int64_t kByteRate = 352800;
constexpr int64_t kSeconds = 3 * 60 * 60;

using Header = std::array<uint8_t, kHeaderSize>;

/// Writes a header's fields one after another, least significant byte first.
class HeaderWriter {
 public:
  HeaderWriter& id(std::string_view text) {
    position_ = std::copy(text.begin(), text.end(), position_);
    return *this;
  }

  template <typename Integer>
  HeaderWriter& field(Integer value) {
    for (size_t i = 0; i < sizeof value; ++i) *position_++ = static_cast<uint8_t>(value >> 8 * i);
    return *this;
  }

  const Header& header() const { return header_; }

 private:
  Header header_{};
  Header::iterator position_ = header_.begin();
};

Header wavHeader(int64_t datasize) {
  HeaderWriter writer;
  writer.id("RIFF").field(uint32_t{0}).id("WAVE");  // the demuxer does not need the RIFF size
  writer.id("fmt ")
      .field(uint32_t{16})
      .field(uint16_t{3})  // IEEE float
      .field(uint16_t{2})
      .field(uint32_t{44100})
      .field(static_cast<uint32_t>(kByteRate))
      .field(uint16_t{4})  // half a frame: what readers of these streams have always been given
      .field(uint16_t{32});
  writer.id("fact").field(uint32_t{4}).field(uint32_t{0});
  writer.id("data").field(static_cast<uint32_t>(datasize));
  return writer.header();
}

/// `size`, but no more than is left and never negative.
int32_t clamped(int32_t size, int64_t left) {
  return static_cast<int32_t>(std::max<int64_t>(std::min<int64_t>(size, left), 0));
}

}  // namespace

std::shared_ptr<LMMediaSource> LMWavSource::copy() const {
  auto source = std::make_shared<LMWavSource>();
  copySettings(*this, *source);
  return source;
}

std::string LMWavSource::path() const { return "filename.wav"; }

int64_t LMWavSource::filesize() const { return datasize() + headerSize(); }

int64_t LMWavSource::datasize() const { return kByteRate * kSeconds; }

int32_t LMWavSource::headerSize() const { return kHeaderSize; }

int32_t LMWavSource::read(uint8_t* buffer, int32_t size) {
  const int64_t position = read_offset();
  if (position < 0) return 0;
  int32_t left = clamped(size, filesize() - position);
  int32_t fromHeader = 0;
  if (position < kHeaderSize) {
    fromHeader = std::min(kHeaderSize - static_cast<int32_t>(position), left);
    const Header header = wavHeader(datasize());
    std::copy_n(header.data() + position, fromHeader, buffer);
    left -= fromHeader;
  }
  return fromHeader + readData(buffer + fromHeader, left);
}

int32_t LMWavSource::readData(uint8_t* data, int32_t size) {
  return readData(data, read_offset(), clamped(size, filesize() - read_offset()));
}

int32_t LMWavSource::readData(uint8_t* data, int64_t /*offset*/, int32_t size) {
  std::fill_n(data, size, uint8_t{0});
  return size;
}

}  // namespace kestrel
