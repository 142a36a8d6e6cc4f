#include "dvd/VolumeReader.h"

#include <array>
#include <cstdarg>
#include <filesystem>
#include <span>
#include <system_error>

namespace kestrel {

namespace {

/// What libdvdread notes of a disc on the way is nothing that its user could act on.
void ignore(void* /*opaque*/, dvd_logger_level_t /*level*/, const char* /*format*/,
            va_list /*arguments*/) {}

// How the table of titles is laid out: bytes. A disc has 99 titles at most.
constexpr size_t kMostTitles = 99;
constexpr size_t kTableHeader = 8;
constexpr size_t kTitleEntry = 12;

/// The entries of a table of titles; none where one of them names no title.
std::vector<TitleEntry> titleEntries(std::span<const uint8_t> table) {
  const size_t count = size_t{table[0]} << 8 | table[1];
  if (count > kMostTitles) return {};
  std::vector<TitleEntry> entries;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* bytes = table.data() + kTableHeader + i * kTitleEntry;
    entries.push_back({bytes[6], bytes[7], bytes[2] << 8 | bytes[3], bytes[1]});
    if (bytes[6] == 0 || bytes[7] == 0) return {};
  }
  return entries;
}

}  // namespace

DVDReaderPtr openVolume(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return nullptr;  // it would print that itself
  static const dvd_logger_cb kSilent{ignore};
  return DVDReaderPtr(DVDOpen2(nullptr, &kSilent, path.c_str()));
}

std::string volumeIdentifier(dvd_reader_t* reader) {
  std::array<char, 33> identifier{};  // one more: the last of 32 bytes need not be NUL
  if (DVDUDFVolumeInfo(reader, identifier.data(), 32, nullptr, 0) != 0) return {};
  std::string name;
  for (const char* c = identifier.data(); *c != 0; ++c) {
    const auto code = static_cast<unsigned char>(*c);  // ISO Latin-1
    if (code < 0x80) {
      name.push_back(*c);
    } else {
      name.push_back(static_cast<char>(0xC0 | code >> 6));
      name.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
  }
  return name;
}

IfoPtr openManager(dvd_reader_t* reader) {
  // Of a damaged manager `ifoOpen` frees tables twice: it is asked only where there is but the
  // backup, which the other one does not look for.
  if (IfoPtr manager{ifoOpenVMGI(reader)}) return manager;
  dvd_file_t* file = DVDOpenFile(reader, 0, DVD_READ_INFO_FILE);
  if (!file) return IfoPtr(ifoOpen(reader, 0));
  DVDCloseFile(file);
  return nullptr;
}

std::vector<TitleEntry> readTitleTable(dvd_reader_t* reader, uint32_t sector) {
  if (sector > INT32_MAX / kSectorBytes) return {};
  for (const dvd_read_domain_t domain : {DVD_READ_INFO_FILE, DVD_READ_INFO_BACKUP_FILE}) {
    const DVDFilePtr file(DVDOpenFile(reader, 0, domain));
    std::array<uint8_t, kTableHeader + kMostTitles * kTitleEntry> bytes{};
    const auto position = static_cast<int32_t>(sector * kSectorBytes);
    const bool isRead =
        file && DVDFileSeek(file.get(), position) == position &&
        DVDReadBytes(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    if (!isRead) continue;
    auto entries = titleEntries(bytes);
    if (!entries.empty()) return entries;
  }
  return {};
}

IfoPtr openTitleSet(dvd_reader_t* reader, int number) { return IfoPtr(ifoOpen(reader, number)); }

}  // namespace kestrel
