#pragma once

// Owners of libdvdread's handles.

#include <cstdint>
#include <memory>

extern "C" {
#include <dvdread/dvd_reader.h>
#include <dvdread/ifo_read.h>
#include <dvdread/ifo_types.h>
}

namespace kestrel {

struct DVDReaderDeleter {
  void operator()(dvd_reader_t* reader) const { DVDClose(reader); }
};
struct DVDFileDeleter {
  void operator()(dvd_file_t* file) const { DVDCloseFile(file); }
};
struct IfoDeleter {
  void operator()(ifo_handle_t* ifo) const { ifoClose(ifo); }
};

using DVDReaderPtr = std::unique_ptr<dvd_reader_t, DVDReaderDeleter>;
using DVDFilePtr = std::unique_ptr<dvd_file_t, DVDFileDeleter>;
using IfoPtr = std::unique_ptr<ifo_handle_t, IfoDeleter>;

inline constexpr int64_t kSectorBytes = DVD_VIDEO_LB_LEN;

}  // namespace kestrel
