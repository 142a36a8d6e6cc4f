#include "dvd/Sectors.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "dvd/DVDOwners.h"

namespace kestrel {

namespace {

// What the fourth byte of a start code says.
constexpr uint8_t kPack = 0xBA;
constexpr uint8_t kSystemHeader = 0xBB;
constexpr uint8_t kPrivate1 = 0xBD;  // AC-3, DTS, LPCM, subpictures
constexpr uint8_t kPrivate2 = 0xBF;  // navigation
constexpr uint8_t kSequence = 0xB3;
constexpr uint8_t kExtension = 0xB5;

constexpr size_t kPackHeader = 14;
constexpr size_t kPacketHeader = 6;

// Where a navigation sector keeps what it says of presentation.
constexpr size_t kNavigationPacket = 38;
constexpr size_t kUnitStart = 57;
constexpr size_t kUnitEnd = 61;

/// The longest that one unit shows, with room for odd discs: ticks of 90 kHz.
constexpr uint32_t kLongestUnit = 90000 * 60;

bool isStartCode(const uint8_t* bytes, uint8_t code) {
  return bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1 && bytes[3] == code;
}

uint32_t read32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void write32(uint8_t* bytes, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

bool isNavigation(const uint8_t* sector) {
  return isStartCode(sector, kPack) && isStartCode(sector + kPackHeader, kSystemHeader) &&
         isStartCode(sector + kNavigationPacket, kPrivate2) &&
         sector[kNavigationPacket + kPacketHeader] == 0;
}

bool carriesMedia(uint8_t id) { return id == kPrivate1 || (id >= 0xC0 && id <= 0xEF); }

/// Calls `use(packet, size)` for each packet of the sector that carries sound, pictures or
/// subpictures; `packet` points at its start code, and `size` bytes of it lie in the sector.
template <typename Byte, typename Use>
void forEachPacket(Byte* sector, Use use) {
  if (!isPack(sector)) return;
  size_t position = kPackHeader + (sector[13] & 7U);
  while (position + kPacketHeader <= kSectorBytes) {
    Byte* packet = sector + position;
    if (packet[0] != 0 || packet[1] != 0 || packet[2] != 1) return;
    const size_t length = kPacketHeader + (size_t{packet[4]} << 8U | packet[5]);
    if (carriesMedia(packet[3])) use(packet, std::min(length, kSectorBytes - position));
    position += length;
  }
}

/// One time stamp of 33 bits, spread over five bytes between marker bits.
void moveStamp(uint8_t* bytes, int64_t ticks) {
  int64_t time = int64_t{bytes[0] >> 1 & 7} << 30 | int64_t{bytes[1]} << 22 |
                 int64_t{bytes[2] >> 1} << 15 | int64_t{bytes[3]} << 7 | bytes[4] >> 1;
  time = (time + ticks) & ((int64_t{1} << 33) - 1);
  bytes[0] = static_cast<uint8_t>((bytes[0] & 0xF1) | (time >> 30 & 7) << 1);
  bytes[1] = static_cast<uint8_t>(time >> 22);
  bytes[2] = static_cast<uint8_t>((time >> 15 & 0x7F) << 1 | 1);
  bytes[3] = static_cast<uint8_t>(time >> 7);
  bytes[4] = static_cast<uint8_t>((time & 0x7F) << 1 | 1);
}

}  // namespace

std::optional<NavigationTimes> navigationTimes(const uint8_t* sector) {
  if (!isNavigation(sector)) return std::nullopt;
  const NavigationTimes times{read32(sector + kUnitStart), read32(sector + kUnitEnd)};
  const bool makesSense = times.end > times.start && times.end - times.start <= kLongestUnit;
  return makesSense ? std::optional(times) : std::nullopt;
}

bool isPack(const uint8_t* sector) { return isStartCode(sector, kPack); }

bool isScrambled(const uint8_t* sector) {
  bool scrambled = false;
  forEachPacket(sector, [&](const uint8_t* packet, size_t size) {
    scrambled = scrambled || (size > 6 && (packet[6] & 0xC0) == 0x80 && (packet[6] & 0x30) != 0);
  });
  return scrambled;
}

void moveTimes(uint8_t* sector, int64_t ticks) {
  if (isNavigation(sector)) {
    for (const size_t place : {kUnitStart, kUnitEnd})
      write32(sector + place, static_cast<uint32_t>(read32(sector + place) + ticks));
    return;
  }
  forEachPacket(sector, [&](uint8_t* packet, size_t size) {
    const bool isMpeg2 = size > 8 && (packet[6] & 0xC0) == 0x80;
    if (!isMpeg2) return;
    if ((packet[7] & 0x80) && size >= 14) moveStamp(packet + 9, ticks);
    if ((packet[7] & 0xC0) == 0xC0 && size >= 19) moveStamp(packet + 14, ticks);
  });
}

void makeEmptyPack(uint8_t* sector, int32_t stream_id) {
  constexpr uint8_t kPadding = 0xBE;
  constexpr std::array<uint8_t, kPackHeader> kHeader{0, 0, 1,    kPack, 0x44, 0,    4,
                                                     0, 4, 0x01, 0x01,  0x89, 0xC3, 0xF8};
  constexpr size_t kContent = 4;  // two bytes of flags, the length of what follows, the stream
  const std::array<uint8_t, kPacketHeader + kContent> packet{
      0, 0, 1, kPrivate1, 0, kContent, 0x80, 0, 0, static_cast<uint8_t>(stream_id)};
  constexpr size_t kRest = kSectorBytes - kPackHeader - kPacketHeader - kContent - kPacketHeader;
  const std::array<uint8_t, kPacketHeader> padding{
      0, 0, 1, kPadding, static_cast<uint8_t>(kRest >> 8), static_cast<uint8_t>(kRest)};
  uint8_t* end = std::ranges::copy(kHeader, sector).out;
  end = std::ranges::copy(packet, end).out;
  end = std::ranges::copy(padding, end).out;
  std::fill_n(end, kRest, uint8_t{0xFF});
}

void countFields(const uint8_t* sector, FieldCount& count) {
  constexpr size_t kSize = 9;  // of what is read of a picture's extension
  constexpr unsigned kOfPicture = 8;
  constexpr unsigned kWholePicture = 3;
  for (size_t i = 0; i + kSize <= kSectorBytes; ++i) {
    const uint8_t* bytes = sector + i;
    if (!isStartCode(bytes, kExtension) || bytes[4] >> 4 != kOfPicture) continue;
    if ((bytes[6] & 3U) != kWholePicture) continue;
    const bool repeatsField = (bytes[7] & 2U) != 0;
    ++count.pictures;
    count.fields += repeatsField ? 3 : 2;
  }
}

std::optional<LMDVDPictureFacts> findPictureFacts(std::span<const uint8_t> sectors) {
  static constexpr std::array<Rational, 9> kRates{{{0, 1},
                                                   {24000, 1001},
                                                   {24, 1},
                                                   {25, 1},
                                                   {30000, 1001},
                                                   {30, 1},
                                                   {50, 1},
                                                   {60000, 1001},
                                                   {60, 1}}};
  constexpr size_t kHeader = 8;
  for (size_t i = 0; i + kHeader <= sectors.size(); ++i) {
    const uint8_t* bytes = sectors.data() + i;
    if (!isStartCode(bytes, kSequence)) continue;
    LMDVDPictureFacts facts;
    facts.width = bytes[4] << 4 | bytes[5] >> 4;
    facts.height = (bytes[5] & 0xF) << 8 | bytes[6];
    const unsigned aspect = bytes[7] >> 4;
    const unsigned rate = bytes[7] & 0xF;
    if (facts.width == 0 || facts.height == 0 || rate == 0 || rate >= kRates.size()) continue;
    facts.aspect = aspect == 2 ? Rational{4, 3} : aspect == 3 ? Rational{16, 9} : Rational{0, 1};
    facts.framerate = kRates[rate];
    return facts;
  }
  return std::nullopt;
}

}  // namespace kestrel
