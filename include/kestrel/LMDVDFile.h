#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVD.h>

#include <cstdint>
#include <memory>
#include <string>

struct dvd_file_s;

namespace kestrel {

/// One file of a volume's VIDEO_TS folder: an information file, its backup, or a part of the VOBs
/// of a menu or of titles. One thread uses it at a time.
class KESTREL_API LMDVDFile {
 public:
  LMDVDFile() = default;
  ~LMDVDFile();
  LMDVDFile(const LMDVDFile&) = delete;
  LMDVDFile& operator=(const LMDVDFile&) = delete;

  /// The volume that the file is read through.
  const std::shared_ptr<LMDVD>& dvd() const { return dvd_; }
  void setDvd(std::shared_ptr<LMDVD> dvd) { dvd_ = std::move(dvd); }

  /// 0 information file, 1 its backup, 2 VOBs of a menu, 3 VOBs of titles.
  int32_t dvd_read_domain() const { return dvd_read_domain_; }
  void setDvd_read_domain(int32_t domain) { dvd_read_domain_ = domain; }

  /// 0 for the manager, else the number of the title set.
  int32_t title_num() const { return title_num_; }
  void setTitle_num(int32_t number) { title_num_ = number; }

  /// Which part of the domain's file this is, from 0.
  int32_t file_part() const { return file_part_; }
  void setFile_part(int32_t part) { file_part_ = part; }

  /// The open file, null while closed; owned by this.
  dvd_file_s* dvd_file() const { return dvd_file_; }

  /// The part's size in bytes.
  int64_t file_size() const { return file_size_; }
  void setFile_size(int64_t size) { file_size_ = size; }
  int64_t filesize() const { return file_size_; }

  /// Added to every position that is read, bytes.
  int64_t offset() const { return offset_; }
  void setOffset(int64_t offset) { offset_ = offset; }

  /// Opens the domain's file: all its parts as one. `isOpen` then says if that worked.
  void open();
  bool isOpen() const { return dvd_file_ != nullptr; }
  void close();

  /// Reads `size` bytes from `offset` on; returns how many came, negative for an error: where the
  /// file is not open, too, and for a negative size or position. VOBs are read in blocks of 2048
  /// bytes: position and size lose what is beyond whole blocks.
  int32_t read(void* data, int64_t offset, int32_t size);

  /// The file's path within the volume, such as "VIDEO_TS/VTS_02_1.VOB".
  std::string filename() const;

  /// Address, path, size and offset.
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
