#include <kestrel/LMDVDFile.h>

#include <fmt/format.h>

#include <mutex>

#include "dvd/DVDOwners.h"

namespace kestrel {

namespace {

constexpr int32_t kRefused = -1;

}  // namespace

LMDVDFile::~LMDVDFile() { close(); }

void LMDVDFile::open() {
  close();
  if (!dvd_ || !dvd_->dvd_reader()) return;
  const std::lock_guard guard(dvd_->internal()->lock());
  dvd_file_ =
      DVDOpenFile(dvd_->dvd_reader(), title_num_, static_cast<dvd_read_domain_t>(dvd_read_domain_));
}

void LMDVDFile::close() {
  const DVDFilePtr closes(dvd_file_);
  dvd_file_ = nullptr;
}

int32_t LMDVDFile::read(void* data, int64_t offset, int32_t size) {
  const int64_t position = offset_ + offset;
  if (!dvd_file_ || !data || size < 0 || position < 0) return kRefused;
  const std::lock_guard guard(dvd_->internal()->lock());
  if (dvd_read_domain_ == DVD_READ_INFO_FILE || dvd_read_domain_ == DVD_READ_INFO_BACKUP_FILE) {
    DVDFileSeek(dvd_file_, static_cast<int32_t>(position));
    return static_cast<int32_t>(DVDReadBytes(dvd_file_, data, static_cast<size_t>(size)));
  }
  const auto blocks =
      DVDReadBlocks(dvd_file_, static_cast<int>(position / kSectorBytes),
                    static_cast<size_t>(size / kSectorBytes), static_cast<unsigned char*>(data));
  return static_cast<int32_t>(blocks * kSectorBytes);
}

std::string LMDVDFile::filename() const {
  const auto inFolder = [](const std::string& name) { return "VIDEO_TS/" + name; };
  const auto ofTitleSet = [&](const char* extension, int32_t part) {
    return inFolder(fmt::format("VTS_{:02}_{}.{}", title_num_, part, extension));
  };
  const bool isManager = title_num_ == 0;
  switch (dvd_read_domain_) {
    case DVD_READ_INFO_FILE:
      return isManager ? inFolder("VIDEO_TS.IFO") : ofTitleSet("IFO", file_part_);
    case DVD_READ_INFO_BACKUP_FILE:
      return isManager ? inFolder("VIDEO_TS.BUP") : ofTitleSet("BUP", file_part_);
    case DVD_READ_MENU_VOBS:
      return isManager ? inFolder("VIDEO_TS.VOB") : ofTitleSet("VOB", file_part_);
    case DVD_READ_TITLE_VOBS:
      return ofTitleSet("VOB", file_part_ + 1);
    default:
      return inFolder("");
  }
}

std::string LMDVDFile::description() const {
  return fmt::format("{} {} {} {}", static_cast<const void*>(this), filename(), file_size_,
                     offset_);
}

}  // namespace kestrel
