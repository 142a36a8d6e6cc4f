#pragma once

#include <kestrel/LMDVDSource.h>

#include <cstdint>
#include <optional>
#include <span>

namespace kestrel {

/// What one sector of a VOB says. A sector is one pack of the program stream: 2048 bytes.

/// When the pictures of a unit are shown, in ticks of 90 kHz of the VOB's own clock.
struct NavigationTimes {
  uint32_t start = 0;
  uint32_t end = 0;
};

/// What a navigation sector says of the unit that it leads; none for any other sector and for times
/// that make no sense.
std::optional<NavigationTimes> navigationTimes(const uint8_t* sector);

/// Whether it is a pack at all, as all sectors of a whole VOB are.
bool isPack(const uint8_t* sector);

/// Whether what the sector carries is scrambled.
bool isScrambled(const uint8_t* sector);

/// Moves all times in the sector by `ticks` of 90 kHz.
void moveTimes(uint8_t* sector, int64_t ticks);

/// Makes a pack that holds but an empty packet of private stream 1, with the number of its stream.
void makeEmptyPack(uint8_t* sector, int32_t stream_id);

/// For how many fields pictures are shown: two each, unless one of them is shown again.
struct FieldCount {
  int64_t pictures = 0;
  int64_t fields = 0;
};

/// Adds the whole pictures that begin in a sector.
void countFields(const uint8_t* sector, FieldCount& count);

/// What the first MPEG sequence header in some sectors says; none without one.
std::optional<LMDVDPictureFacts> findPictureFacts(std::span<const uint8_t> sectors);

}  // namespace kestrel
