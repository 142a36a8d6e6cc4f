#pragma once

#include <kestrel/Export.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace kestrel {

/// A run of 2048-byte sectors in the title VOBs of a title set; titles and sources consist of runs.
///
/// A value that may be read while another thread writes it. Runs are shared: everybody who holds
/// one sees changes to it.
class KESTREL_API LMDVDMedia {
 public:
  /// An empty run.
  LMDVDMedia() = default;
  LMDVDMedia(int32_t start_sector, int32_t sector_count, int32_t vob_id = 0)
      : start_sector_(start_sector), sector_count_(sector_count), vob_id_(vob_id) {}

  /// The first sector, counted within the title VOBs of the title set.
  int32_t start_sector() const { return start_sector_; }
  void setStart_sector(int32_t sector) { start_sector_ = sector; }

  int32_t sector_count() const { return sector_count_; }
  void setSector_count(int32_t count) { sector_count_ = count; }

  /// The number of the VOB that the run belongs to; 0 if unknown.
  int32_t vob_id() const { return vob_id_; }
  void setVob_id(int32_t id) { vob_id_ = id; }

  /// The part of this run that lies in `count` sectors from sector `start` on, as a new run with an
  /// unknown VOB; null if there is no overlap.
  std::shared_ptr<LMDVDMedia> subMediaAt(int32_t start, uint32_t count) const;

  /// "start:100 count:50".
  std::string description() const;

 private:
  std::atomic<int32_t> start_sector_{0};
  std::atomic<int32_t> sector_count_{0};
  std::atomic<int32_t> vob_id_{0};
};

}  // namespace kestrel
