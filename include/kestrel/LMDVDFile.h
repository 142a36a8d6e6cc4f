#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVD.h>

#include <cstdint>
#include <memory>
#include <string>

struct dvd_file_s;

namespace kestrel {

/// A file in a volume's VIDEO_TS folder: an information file, its backup, or a part of a menu's or
/// the titles' VOBs. Use from one thread at a time.
class KESTREL_API LMDVDFile {
 public:
  LMDVDFile() = default;
  ~LMDVDFile();
  LMDVDFile(const LMDVDFile&) = delete;
  LMDVDFile& operator=(const LMDVDFile&) = delete;

  /// The volume that the file belongs to.
  const std::shared_ptr<LMDVD>& dvd() const { return dvd_; }
  void setDvd(std::shared_ptr<LMDVD> dvd) { dvd_ = std::move(dvd); }

  /// Kind of file: 0 information file, 1 its backup, 2 VOBs of a menu, 3 VOBs of titles.
  int32_t dvd_read_domain() const { return dvd_read_domain_; }
  void setDvd_read_domain(int32_t domain) { dvd_read_domain_ = domain; }

  /// Number of the title set; 0 for the manager.
  int32_t title_num() const { return title_num_; }
  void setTitle_num(int32_t number) { title_num_ = number; }

  /// Index of this part within the domain's file, from 0.
  int32_t file_part() const { return file_part_; }
  void setFile_part(int32_t part) { file_part_ = part; }

  /// The open file, owned by this object; null while closed.
  dvd_file_s* dvd_file() const { return dvd_file_; }

  /// The part's size in bytes.
  int64_t file_size() const { return file_size_; }
  void setFile_size(int64_t size) { file_size_ = size; }
  int64_t filesize() const { return file_size_; }

  /// Added to the position of every read, bytes.
  int64_t offset() const { return offset_; }
  void setOffset(int64_t offset) { offset_ = offset; }

  /// Opens the domain's file with all of its parts; `isOpen` tells whether that succeeded.
  void open();
  bool isOpen() const { return dvd_file_ != nullptr; }
  void close();

  /// Reads `size` bytes at `offset` and returns how many were read; negative on error, also if the
  /// file is not open, `data` is null, or `size` or the position is negative. VOBs are read in
  /// blocks of 2048 bytes: position and size are rounded down to whole blocks.
  int32_t read(void* data, int64_t offset, int32_t size);

  /// The path within the volume, such as "VIDEO_TS/VTS_02_1.VOB".
  std::string filename() const;

  /// Address, path, size and offset, for debugging.
  std::string description() const;

 private:
  std::shared_ptr<LMDVD> dvd_;
  int32_t dvd_read_domain_ = 0;
  int32_t title_num_ = 0;
  int32_t file_part_ = 0;
  dvd_file_s* dvd_file_ = nullptr;
  int64_t file_size_ = 0;
  int64_t offset_ = 0;
};

}  // namespace kestrel
