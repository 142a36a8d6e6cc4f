#pragma once

#include <kestrel/LMDVDTitleSource.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "dvd/DVDOwners.h"
#include "dvd/Sectors.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

inline constexpr AVRational kTicks{1, 90000};

/// Where the stream's time begins, in ticks: far enough from 0 that what is decoded before the
/// first picture is shown has times, too.
inline constexpr int64_t kFirstTick = 90000;

/// Cells whose time stamps go on from each to the next, or a piece of one.
struct TitleSegment {
  uint32_t first_sector = 0;
  int64_t sectors = 0;
  int64_t position = 0;   // its first sector in the virtual file
  int64_t start = 0;      // when it begins in the stream, ticks
  int64_t own_start = 0;  // and by its own clock
  int64_t length = 0;     // ticks
  bool isMade = false;    // not on the disc: it tells the demuxer of subpictures to come
};

/// The title's cells as one virtual file: laid one behind the other, with times that go on.
struct LMDVDTitleSource::State {
  std::shared_ptr<LMDVD> dvd;
  std::shared_ptr<LMDVDTitleSet> title_set;
  std::shared_ptr<LMDVDTitle> title;
  int32_t angle = 1;
  DVDFilePtr vobs;
  std::vector<TitleSegment> segments;
  std::vector<std::optional<size_t>> segmentOfCell;  // none for a cell that is not there
  int64_t available = 0;                             // blocks of the title set's VOBs
  int64_t blocks = 0;                                // of the virtual file
  bool isCut = false;                                // not all of the cells' sectors are there
  bool metScrambled = false;                         // a scrambled sector has been read
  int failures = 0;                                  // units in a row that could not be read

  const std::vector<LMDVDCell>& cells() const;
  void openVobs();
  void layOut();
  void announceSubpictures();
  int64_t blocksOfFirstUnit() const;
  void addSectors(TitleSegment segment, LMDVDSectors sectors);
  bool beginsScrambled() const;
  std::optional<NavigationTimes> timesAt(uint32_t sector) const;
  const TitleSegment* segmentAt(int64_t block) const;
  std::optional<Rational> pictureRate();
  int64_t readVobs(int64_t first, int64_t count, uint8_t* buffer) const;
  int64_t readBlocks(int64_t block, int64_t count, uint8_t* buffer);
};

}  // namespace kestrel
