#pragma once

#include <kestrel/LMDVDTitleSet.h>

#include <cstdint>
#include <memory>
#include <string>

#include "dvd/DVDOwners.h"

namespace kestrel {

/// Builds a title set of its information, which must have all three of its tables.
std::shared_ptr<LMDVDTitleSet> readTitleSet(const ifo_handle_t& information, int32_t number);

/// The title that the title set counts as `number`, from 1: that of the chain which its first
/// chapter names. Null where there is none.
std::shared_ptr<LMDVDTitle> numberedTitle(const ifo_handle_t& information, const LMDVDTitleSet& set,
                                          int32_t number);

/// The two letters of a language code, the high byte first; two NULs where there is none.
inline std::string lettersOf(uint16_t code) {
  if (code == 0xFFFF) code = 0;
  return {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
}

/// A time as discs write it, in decimal digits with pictures counted at the disc's rate;
/// microseconds. Digits that are none count as 0.
int64_t microsecondsOf(const dvd_time_t& time);

}  // namespace kestrel
