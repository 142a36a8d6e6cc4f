#pragma once

#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDTitleSource.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {

/// A test disc as a folder and as an image.
inline std::filesystem::path discFolder(const std::string& name) {
  return discFixture(name) / "disc";
}
inline std::filesystem::path discImage(const std::string& name) {
  return discFixture(name) / "disc.iso";
}

inline std::string bytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void writeBytes(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

/// A copy of a test disc that a test may damage.
class DiscCopy {
 public:
  explicit DiscCopy(const std::string& name) {
    std::filesystem::copy(discFolder(name), path(), std::filesystem::copy_options::recursive);
  }

  std::filesystem::path path() const { return folder_ / "disc"; }
  std::filesystem::path file(const std::string& name) const { return path() / "VIDEO_TS" / name; }

  /// Keeps the first `size` bytes of a file.
  void cut(const std::string& name, uintmax_t size) const {
    std::filesystem::resize_file(file(name), size);
  }

  /// Replaces bytes of an information file and of its backup from `offset` on.
  void patchInformation(const std::string& stem, size_t offset, const std::string& bytes) const {
    for (const char* extension : {".IFO", ".BUP"}) {
      std::string content = bytesOf(file(stem + extension));
      writeBytes(file(stem + extension), content.replace(offset, bytes.size(), bytes));
    }
  }

 private:
  TempDir folder_;
};

/// A 32-bit number as discs write it.
inline std::string bigEndian32(uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline uint32_t readBigEndian32(const std::string& bytes, size_t offset) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[offset + i]);
  return value;
}

/// Where a program chain, counted from 0, stands in the information of the first title set. The
/// sector of the table of chains stands at 0xCC.
inline size_t placeOfChain(const DiscCopy& disc, size_t chain) {
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t chains = size_t{readBigEndian32(content, 0xCC)} * 2048;
  return chains + readBigEndian32(content, chains + 8 + 8 * chain + 4);
}

/// Where a cell of a chain stands: the place of the cells, of 24 bytes each, stands 232 bytes into
/// the chain. Of a cell, the first sector stands at 8, the last at 20, and where its last unit
/// begins at 16.
inline size_t placeOfCell(const DiscCopy& disc, size_t chain, size_t cell) {
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t place = placeOfChain(disc, chain);
  return place + (readBigEndian32(content, place + 232) >> 16) + 24 * cell;
}

/// Makes the title that the first title set counts first begin with a chain, counted from 1. The
/// sector of its table of chapters stands at 0xC8, the place of the title's list 8 bytes into it.
inline void setFirstChain(const DiscCopy& disc, uint8_t chain) {
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t table = size_t{readBigEndian32(content, 0xC8)} * 2048;
  const size_t list = table + readBigEndian32(content, table + 8);
  disc.patchInformation("VTS_01_0", list, {'\0', static_cast<char>(chain)});
}

/// Scrambles a title set's sectors from `first` up to `end`, as their packets say.
inline void scramble(const DiscCopy& disc, size_t first, size_t end = SIZE_MAX) {
  std::string content = bytesOf(disc.file("VTS_01_1.VOB"));
  for (size_t sector = first; sector < std::min(end, content.size() / 2048); ++sector)
    if (content[sector * 2048 + 17] != '\xBB') content[sector * 2048 + 20] |= '\x30';
  writeBytes(disc.file("VTS_01_1.VOB"), content);
}

/// Exchanges two titles, counted from 1, in a disc's own table of titles.
inline void exchangeTitles(const DiscCopy& disc, size_t a, size_t b) {
  const std::string manager = bytesOf(disc.file("VIDEO_TS.IFO"));
  const auto entry = [&](size_t number) {  // the table's sector stands at 0xC4
    return size_t{readBigEndian32(manager, 0xC4)} * 2048 + 8 + (number - 1) * 12;
  };
  disc.patchInformation("VIDEO_TS", entry(a), manager.substr(entry(b), 12));
  disc.patchInformation("VIDEO_TS", entry(b), manager.substr(entry(a), 12));
}

/// A title of a disc, counted from 0 over all title sets, as one stream.
inline std::shared_ptr<LMDVDTitleSource> titleSource(const std::shared_ptr<LMDVD>& dvd,
                                                     size_t index) {
  for (const auto& set : dvd->title_sets()) {
    if (index < set->titles().size())
      return std::make_shared<LMDVDTitleSource>(dvd, set, set->titles()[index]);
    index -= set->titles().size();
  }
  return nullptr;
}

}  // namespace kestrel::test
