#include "dvd/TitleSourceState.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <span>

namespace kestrel {

namespace {

/// How much is left out where sectors can't be read: the unit in which discs protect their data.
constexpr int64_t kErrorBlock = 16;

/// So many units that can't be read one after another are the end.
constexpr int kMostErrorBlocks = 64;

/// How far into each piece of the title one looks whether it is scrambled.
constexpr int64_t kMostBlocksToCheck = 64;

/// A unit lasts a second at most.
constexpr int64_t kMostUnitBlocks = 1024;

/// Where one looks how the pictures come: so many places, evenly spread, of so many blocks.
constexpr int64_t kSamples = 16;
constexpr int64_t kSampleBlocks = 128;

bool followsOn(const LMDVDCell& cell, const LMDVDCell& before) {
  return cell.vob_id == before.vob_id && cell.first_sector == before.last_sector + 1 &&
         cell.first_sector <= cell.last_sector && !cell.restartsClock && cell.pieces.empty() &&
         before.pieces.empty();
}

}  // namespace

const std::vector<LMDVDCell>& LMDVDTitleSource::State::cells() const { return title->cells(angle); }

void LMDVDTitleSource::State::openVobs() {
  if (vobs || !dvd || !dvd->dvd_reader() || !title_set || !title) return;
  {
    const std::lock_guard guard(dvd->internal()->lock());
    vobs.reset(DVDOpenFile(dvd->dvd_reader(), title_set->title_set(), DVD_READ_TITLE_VOBS));
  }
  if (!vobs) return;
  layOut();
  announceSubpictures();
}

/// Blocks of the title set's VOBs, and how many could be read; negative for an error.
int64_t LMDVDTitleSource::State::readVobs(int64_t first, int64_t count, uint8_t* buffer) const {
  const std::lock_guard guard(dvd->internal()->lock());
  return DVDReadBlocks(vobs.get(), static_cast<int>(first), static_cast<size_t>(count), buffer);
}

std::optional<NavigationTimes> LMDVDTitleSource::State::timesAt(uint32_t sector) const {
  std::array<uint8_t, kSectorBytes> bytes;
  const bool isRead = int64_t{sector} < available && readVobs(sector, 1, bytes.data()) == 1;
  return isRead ? navigationTimes(bytes.data()) : std::nullopt;
}

/// Puts the cells one behind the other, as far as the VOBs hold them.
void LMDVDTitleSource::State::layOut() {
  available = std::max<ssize_t>(DVDFileSize(vobs.get()), 0);
  const auto& cells = this->cells();
  int64_t tick = kFirstTick;
  for (size_t i = 0; i < cells.size();) {
    const LMDVDCell& first = cells[i];
    int64_t stated = first.duration;
    for (++i; i < cells.size() && followsOn(cells[i], cells[i - 1]); ++i)
      stated += cells[i].duration;
    const LMDVDCell& last = cells[i - 1];

    TitleSegment segment;
    segment.start = tick;
    segment.length = av_rescale_q(stated, kMicroseconds, kTicks);
    const auto opening = timesAt(first.first_sector);
    segment.own_start = opening            ? int64_t{opening->start}
                        : segments.empty() ? tick
                                           : segments.back().own_start + segments.back().length;
    const auto closing = timesAt(last.last_vobu_sector);
    if (opening && closing && closing->end > opening->start)
      segment.length = int64_t{closing->end} - opening->start;
    const size_t index = segments.size();
    if (first.pieces.empty()) {
      addSectors(segment, {first.first_sector, last.last_sector});
    } else {
      for (const LMDVDSectors& piece : first.pieces) addSectors(segment, piece);
    }
    const bool isThere = segments.size() > index;
    segmentOfCell.resize(i, isThere ? std::optional(index) : std::nullopt);
    if (isThere) tick += segment.length;
  }
}

/// Demuxers make a stream where they meet its first packet, which for subpictures may be far into
/// the title: those that look at the beginning alone would never know of them. So each has an empty
/// packet behind the title's first unit, where pictures and sound have come by.
void LMDVDTitleSource::State::announceSubpictures() {
  const auto& tracks = title->subtitleTracks();
  if (segments.empty() || tracks.empty()) return;
  TitleSegment& first = segments.front();
  TitleSegment made = first;
  TitleSegment rest = first;
  made.isMade = true;
  made.sectors = static_cast<int64_t>(tracks.size());
  first.sectors = std::min(first.sectors, blocksOfFirstUnit());
  rest.first_sector += static_cast<uint32_t>(first.sectors);
  rest.sectors -= first.sectors;
  std::vector<TitleSegment> added{made};
  if (rest.sectors > 0) added.push_back(rest);
  segments.insert(segments.begin() + 1, added.begin(), added.end());
  for (auto& segment : segmentOfCell)
    if (segment && *segment > 0) *segment += added.size();
  blocks = 0;
  for (TitleSegment& segment : segments) {
    segment.position = blocks;
    blocks += segment.sectors;
  }
}

/// How far the title's first unit goes: up to the next sector of navigation.
int64_t LMDVDTitleSource::State::blocksOfFirstUnit() const {
  const TitleSegment& first = segments.front();
  const int64_t most = std::min(first.sectors, kMostUnitBlocks);
  std::vector<uint8_t> bytes(static_cast<size_t>(most * kSectorBytes));
  const int64_t got = readVobs(first.first_sector, most, bytes.data());
  for (int64_t block = 1; block < got; ++block)
    if (navigationTimes(bytes.data() + block * kSectorBytes)) return block;
  return most;
}

/// Adds those of some sectors that are there, with a segment's clock.
void LMDVDTitleSource::State::addSectors(TitleSegment segment, LMDVDSectors sectors) {
  const int64_t end = std::min<int64_t>(int64_t{sectors.last} + 1, available);
  segment.first_sector = sectors.first;
  segment.sectors = end - sectors.first;
  segment.position = blocks;
  isCut = isCut || int64_t{sectors.last} >= available || segment.sectors <= 0;
  if (segment.sectors <= 0) return;
  blocks += segment.sectors;
  segments.push_back(segment);
}

const TitleSegment* LMDVDTitleSource::State::segmentAt(int64_t block) const {
  const auto next = std::ranges::upper_bound(segments, block, {}, &TitleSegment::position);
  if (block < 0 || next == segments.begin()) return nullptr;
  const TitleSegment& segment = *std::prev(next);
  return block < segment.position + segment.sectors ? &segment : nullptr;
}

/// Reads blocks of one segment, their times moved. What can't be read is blank: demuxers look for
/// the next pack there. Answers how many came, 0 at the end, below 0 when some of them are blank.
int64_t LMDVDTitleSource::State::readBlocks(int64_t block, int64_t count, uint8_t* buffer) {
  const TitleSegment* segment = segmentAt(block);
  if (!segment) return 0;
  const int64_t within = block - segment->position;
  const auto first = static_cast<int>(segment->first_sector + within);
  count = std::min(count, segment->sectors - within);
  if (segment->isMade) {
    for (int64_t i = 0; i < count; ++i)
      makeEmptyPack(buffer + i * kSectorBytes,
                    title->subtitleTracks()[static_cast<size_t>(within + i)].stream_id);
    return count;
  }
  int64_t got = readVobs(first, count, buffer);
  bool isWhole = true;
  if (got <= 0) {
    // Read by and by, up to the place itself.
    got = std::min(kErrorBlock - first % kErrorBlock, count);
    isWhole = readVobs(first, got, buffer) == got;
    failures = isWhole ? 0 : failures + 1;
    if (!isWhole) std::fill_n(buffer, got * kSectorBytes, uint8_t{0});
    if (failures > kMostErrorBlocks) return 0;
  } else {
    failures = 0;
  }
  const int64_t ticks = segment->start - segment->own_start;
  for (int64_t i = 0; i < got; ++i) {
    uint8_t* sector = buffer + i * kSectorBytes;
    const bool scrambled = isScrambled(sector);
    metScrambled = metScrambled || scrambled;
    if (scrambled || !isPack(sector)) {
      std::fill_n(sector, kSectorBytes, uint8_t{0});
      isWhole = false;
    }
    moveTimes(sector, ticks);
  }
  return isWhole ? got : -got;
}

/// Pictures per second. Discs state 29.97 of film, too: its pictures then repeat fields by turns,
/// so that four of them last as long as five. Where all but a few samples do so it is film;
/// elsewhere 23.976 would lose pictures.
std::optional<Rational> LMDVDTitleSource::State::pictureRate() {
  constexpr Rational kVideo{30000, 1001};
  constexpr Rational kFilm{24000, 1001};
  constexpr double kFieldsOfFilm = 2.45;  // per picture; 2.5 where there is nothing else
  std::vector<uint8_t> bytes(static_cast<size_t>(kSampleBlocks * kSectorBytes));
  std::optional<Rational> rate;
  FieldCount count;
  for (int64_t i = 0; i < kSamples; ++i) {
    const int64_t block = (2 * i + 1) * blocks / (2 * kSamples);
    const auto got = static_cast<size_t>(std::abs(readBlocks(block, kSampleBlocks, bytes.data())));
    const std::span<const uint8_t> sample(bytes.data(), got * kSectorBytes);
    if (const auto facts = findPictureFacts(sample); facts && !rate) rate = facts->framerate;
    if (rate && *rate != kVideo) return rate;
    for (size_t k = 0; k < got; ++k) countFields(bytes.data() + k * kSectorBytes, count);
  }
  const bool isFilm =
      static_cast<double>(count.fields) > static_cast<double>(count.pictures) * kFieldsOfFilm;
  return rate && isFilm ? kFilm : rate;
}

/// Looks at the beginning of every segment: what comes before a film is often not scrambled.
bool LMDVDTitleSource::State::beginsScrambled() const {
  std::vector<uint8_t> bytes(static_cast<size_t>(kMostBlocksToCheck * kSectorBytes));
  for (const TitleSegment& segment : segments) {
    if (segment.isMade) continue;
    const auto count = static_cast<size_t>(std::min(segment.sectors, kMostBlocksToCheck));
    const int64_t got = readVobs(segment.first_sector, count, bytes.data());
    for (int64_t i = 0; i < got; ++i)
      if (isScrambled(bytes.data() + i * kSectorBytes)) return true;
  }
  return false;
}

}  // namespace kestrel
