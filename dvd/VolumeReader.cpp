#include "dvd/VolumeReader.h"

#include <array>
#include <cstdarg>
#include <filesystem>
#include <system_error>

namespace kestrel {

namespace {

/// What libdvdread notes of a disc on the way is nothing that its user could act on.
void ignore(void* /*opaque*/, dvd_logger_level_t /*level*/, const char* /*format*/,
            va_list /*arguments*/) {}

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

bool readTitleTable(ifo_handle_t& manager) {
  if (manager.tt_srpt || ifoRead_TT_SRPT(&manager)) return true;
  manager.tt_srpt = nullptr;  // what is left there has been freed
  return false;
}

IfoPtr openTitleSet(dvd_reader_t* reader, int number) { return IfoPtr(ifoOpen(reader, number)); }

}  // namespace kestrel
