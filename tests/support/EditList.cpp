#include "tests/support/EditList.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kestrel::test {

namespace {

uint32_t numberAt(const std::string& bytes, size_t place) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<uint8_t>(bytes.at(place + i));
  return number;
}

std::string bytesOf(uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 255);
  return bytes;
}

/// The first box of a type between two places.
size_t findBox(const std::string& bytes, std::string_view type, size_t begin, size_t end) {
  for (size_t place = begin; place + 8 <= end; place += numberAt(bytes, place))
    if (bytes.compare(place + 4, 4, type) == 0) return place;
  throw std::runtime_error("no box " + std::string(type));
}

}  // namespace

void setEdits(const std::filesystem::path& file, const std::vector<Edit>& edits) {
  std::ifstream input(file, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
  std::vector<size_t> boxes;
  size_t begin = 0;
  size_t end = bytes.size();
  for (const char* type : {"moov", "trak", "edts", "elst"}) {
    boxes.push_back(findBox(bytes, type, begin, end));
    begin = boxes.back() + 8;
    end = boxes.back() + numberAt(bytes, boxes.back());
  }
  std::string list = bytesOf(0) + bytesOf(static_cast<uint32_t>(edits.size()));
  for (const Edit& edit : edits)
    list += bytesOf(edit.duration) + bytesOf(edit.start) + bytesOf(0x10000);
  const size_t old = end - begin;
  bytes.replace(begin, old, list);
  for (const size_t box : boxes) {
    const size_t size = numberAt(bytes, box) + list.size() - old;
    bytes.replace(box, 4, bytesOf(static_cast<uint32_t>(size)));
  }
  std::ofstream(file, std::ios::binary) << bytes;
}

}  // namespace kestrel::test
