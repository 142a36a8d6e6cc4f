#include <kestrel/LMDVDTitleSource.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <span>
#include <utility>

#include "dvd/DVDOwners.h"
#include "dvd/Sectors.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr AVRational kTicks{1, 90000};

/// Where the stream's time begins, in ticks: far enough from 0 that what is decoded before the
/// first picture is shown has times, too.
constexpr int64_t kFirstTick = 90000;

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

constexpr int32_t kBufferBytes = 1048576;

/// The code by which containers name a language that a disc names by two letters.
std::string threeLetters(const std::string& language) {
  const std::string code = uloc_getISO3Language(language.c_str());
  return code.empty() ? language : code;
}

/// One colour, 0x00YYCrCb in the range of video, as 0x00RRGGBB by ITU-R BT.601.
uint32_t rgbOf(uint32_t colour) {
  const double y = 255 / 219.0 * (static_cast<double>(colour >> 16 & 0xFF) - 16);
  const double cr = 255 / 224.0 * (static_cast<double>(colour >> 8 & 0xFF) - 128);
  const double cb = 255 / 224.0 * (static_cast<double>(colour & 0xFF) - 128);
  const auto component = [](double value) {
    return static_cast<uint32_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  return component(y + 1.402 * cr) << 16 | component(y - 0.344136 * cb - 0.714136 * cr) << 8 |
         component(y + 1.772 * cb);
}

/// What containers keep beside subpictures, in the form that players know from .idx files.
std::string subpictureHeader(const SubtitlePalette& palette, int width, int height) {
  std::vector<std::string> colours;
  for (const uint32_t colour : palette) colours.push_back(fmt::format("{:06x}", rgbOf(colour)));
  return fmt::format("size: {}x{}\npalette: {}\n", width, height, fmt::join(colours, ", "));
}

void setExtradata(AVCodecParameters& parameters, const std::string& bytes) {
  auto* data = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!data) return;
  std::ranges::copy(bytes, data);
  av_freep(&parameters.extradata);
  parameters.extradata = data;
  parameters.extradata_size = static_cast<int>(bytes.size());
}

/// How containers mark tracks of a kind.
int dispositionOf(LMDVDTrackKind kind) {
  using Kind = LMDVDTrackKind;
  switch (kind) {
    case Kind::kVisuallyImpaired:
      return AV_DISPOSITION_VISUAL_IMPAIRED;
    case Kind::kCommentary:
    case Kind::kAlternateCommentary:
    case Kind::kLargeCommentary:
    case Kind::kChildrensCommentary:
      return AV_DISPOSITION_COMMENT;
    case Kind::kCaptions:
    case Kind::kLargeCaptions:
    case Kind::kChildrensCaptions:
      return AV_DISPOSITION_HEARING_IMPAIRED;
    case Kind::kForced:
      return AV_DISPOSITION_FORCED;
    default:
      return 0;
  }
}

Error scrambledError() {
  return engineError(AVERROR(EACCES),
                     "the disc is scrambled (copy protection), and scrambled discs are not read");
}

/// The size of a title's pictures, pixels: their own or, where they do not tell, that stated.
std::pair<int, int> pictureSize(const AVFormatContext& context, const LMDVDVideo& stated) {
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVCodecParameters& stream = *context.streams[i]->codecpar;
    if (stream.codec_type == AVMEDIA_TYPE_VIDEO && stream.width > 0 && stream.height > 0)
      return {stream.width, stream.height};
  }
  return {stated.width, stated.height};
}

/// Cells whose time stamps go on from each to the next, or a piece of one.
struct Segment {
  uint32_t first_sector = 0;
  int64_t sectors = 0;
  int64_t position = 0;   // its first sector in the virtual file
  int64_t start = 0;      // when it begins in the stream, ticks
  int64_t own_start = 0;  // and by its own clock
  int64_t length = 0;     // ticks
  bool isMade = false;    // not on the disc: it tells the demuxer of subpictures to come
};

bool followsOn(const LMDVDCell& cell, const LMDVDCell& before) {
  return cell.vob_id == before.vob_id && cell.first_sector == before.last_sector + 1 &&
         cell.first_sector <= cell.last_sector && !cell.restartsClock && cell.pieces.empty() &&
         before.pieces.empty();
}

}  // namespace

struct LMDVDTitleSource::State {
  std::shared_ptr<LMDVD> dvd;
  std::shared_ptr<LMDVDTitleSet> title_set;
  std::shared_ptr<LMDVDTitle> title;
  int32_t angle = 1;
  DVDFilePtr vobs;
  std::vector<Segment> segments;
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
  void addSectors(Segment segment, LMDVDSectors sectors);
  bool beginsScrambled() const;
  std::optional<NavigationTimes> timesAt(uint32_t sector) const;
  const Segment* segmentAt(int64_t block) const;
  std::optional<Rational> pictureRate();
  int64_t readVobs(int64_t first, int64_t count, uint8_t* buffer) const;
  int64_t readBlocks(int64_t block, int64_t count, uint8_t* buffer);
};

LMDVDTitleSource::LMDVDTitleSource(std::shared_ptr<LMDVD> dvd,
                                   std::shared_ptr<LMDVDTitleSet> title_set,
                                   std::shared_ptr<LMDVDTitle> title, int32_t angle)
    : state_(std::make_unique<State>()) {
  state_->dvd = std::move(dvd);
  state_->title_set = std::move(title_set);
  state_->title = std::move(title);
  state_->angle = angle;
}

LMDVDTitleSource::~LMDVDTitleSource() { close(); }

std::shared_ptr<LMMediaSource> LMDVDTitleSource::copy() const {
  return std::make_shared<LMDVDTitleSource>(state_->dvd, state_->title_set, state_->title,
                                            state_->angle);
}

const std::shared_ptr<LMDVD>& LMDVDTitleSource::dvd() const { return state_->dvd; }

const std::shared_ptr<LMDVDTitleSet>& LMDVDTitleSource::title_set() const {
  return state_->title_set;
}

const std::shared_ptr<LMDVDTitle>& LMDVDTitleSource::title() const { return state_->title; }

int32_t LMDVDTitleSource::angle() const { return state_->angle; }

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

    Segment segment;
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
  Segment& first = segments.front();
  Segment made = first;
  Segment rest = first;
  made.isMade = true;
  made.sectors = static_cast<int64_t>(tracks.size());
  first.sectors = std::min(first.sectors, blocksOfFirstUnit());
  rest.first_sector += static_cast<uint32_t>(first.sectors);
  rest.sectors -= first.sectors;
  std::vector<Segment> added{made};
  if (rest.sectors > 0) added.push_back(rest);
  segments.insert(segments.begin() + 1, added.begin(), added.end());
  for (auto& segment : segmentOfCell)
    if (segment && *segment > 0) *segment += added.size();
  blocks = 0;
  for (Segment& segment : segments) {
    segment.position = blocks;
    blocks += segment.sectors;
  }
}

/// How far the title's first unit goes: up to the next sector of navigation.
int64_t LMDVDTitleSource::State::blocksOfFirstUnit() const {
  const Segment& first = segments.front();
  const int64_t most = std::min(first.sectors, kMostUnitBlocks);
  std::vector<uint8_t> bytes(static_cast<size_t>(most * kSectorBytes));
  const int64_t got = readVobs(first.first_sector, most, bytes.data());
  for (int64_t block = 1; block < got; ++block)
    if (navigationTimes(bytes.data() + block * kSectorBytes)) return block;
  return most;
}

/// Adds those of some sectors that are there, with a segment's clock.
void LMDVDTitleSource::State::addSectors(Segment segment, LMDVDSectors sectors) {
  const int64_t end = std::min<int64_t>(int64_t{sectors.last} + 1, available);
  segment.first_sector = sectors.first;
  segment.sectors = end - sectors.first;
  segment.position = blocks;
  isCut = isCut || int64_t{sectors.last} >= available || segment.sectors <= 0;
  if (segment.sectors <= 0) return;
  blocks += segment.sectors;
  segments.push_back(segment);
}

const Segment* LMDVDTitleSource::State::segmentAt(int64_t block) const {
  const auto next = std::ranges::upper_bound(segments, block, {}, &Segment::position);
  if (block < 0 || next == segments.begin()) return nullptr;
  const Segment& segment = *std::prev(next);
  return block < segment.position + segment.sectors ? &segment : nullptr;
}

/// Reads blocks of one segment, their times moved. What can't be read is blank: demuxers look for
/// the next pack there. Answers how many came, 0 at the end, below 0 when some of them are blank.
int64_t LMDVDTitleSource::State::readBlocks(int64_t block, int64_t count, uint8_t* buffer) {
  const Segment* segment = segmentAt(block);
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

AVIOContext* LMDVDTitleSource::avio_context() {
  state_->openVobs();
  return LMCustomSource::avio_context();
}

int32_t LMDVDTitleSource::read(uint8_t* buffer, int32_t size) {
  if (!state_->vobs || read_offset() < 0) return 0;
  if (const auto stop = interrupt(); stop && stop()) return AVERROR_EXIT;
  const int64_t block = read_offset() / kSectorBytes;
  const int64_t within = read_offset() % kSectorBytes;
  const bool isAligned = within == 0 && size >= kSectorBytes;
  std::array<uint8_t, kSectorBytes> sector;
  const int64_t answer = isAligned ? state_->readBlocks(block, size / kSectorBytes, buffer)
                                   : state_->readBlocks(block, 1, sector.data());
  const bool isMissing = answer == 0 && (block < state_->blocks || state_->isCut);
  if (answer < 0 || isMissing)
    setLastError(state_->metScrambled
                     ? scrambledError()
                     : engineError(AVERROR(EIO), "not all of its sectors can be read"));
  const int64_t got = std::abs(answer);
  if (isAligned || got == 0) return static_cast<int32_t>(got * kSectorBytes);
  const int64_t count = std::min<int64_t>(size, kSectorBytes - within);
  std::copy_n(sector.data() + within, count, buffer);
  return static_cast<int32_t>(count);
}

Error LMDVDTitleSource::whyUnreadable() {
  state_->openVobs();
  if (!state_->vobs) return engineError(AVERROR(EIO), "the title's VOBs cannot be opened");
  if (state_->segments.empty())
    return engineError(AVERROR(EIO), "none of the title's sectors are there");
  return state_->beginsScrambled() ? scrambledError() : Error{};
}

Error LMDVDTitleSource::problem() {
  Error error = whyUnreadable();
  if (!error && state_->isCut)
    error = engineError(AVERROR(EIO), "not all of the title's sectors are there");
  return error;
}

void LMDVDTitleSource::open() {
  if (isOpen()) return;
  if (const Error error = whyUnreadable()) return setLastError(error);
  LMCustomSource::open();
  if (!isOpen()) return;
  AVFormatContext& context = *formatContext();
  context.start_time = av_rescale_q(kFirstTick, kTicks, kMicroseconds);
  context.duration = duration();
  setPictureRate();
  describeStreams();
  addChapters();
}

/// The demuxer's own idea of it counts fields where pictures repeat them.
void LMDVDTitleSource::setPictureRate() {
  const auto rate = state_->pictureRate();
  if (!rate) return;
  AVFormatContext& context = *formatContext();
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    stream.r_frame_rate = {rate->num, rate->den};
    stream.avg_frame_rate = stream.r_frame_rate;
  }
}

/// Looks at the beginning of every segment: what comes before a film is often not scrambled.
bool LMDVDTitleSource::State::beginsScrambled() const {
  std::vector<uint8_t> bytes(static_cast<size_t>(kMostBlocksToCheck * kSectorBytes));
  for (const Segment& segment : segments) {
    if (segment.isMade) continue;
    const auto count = static_cast<size_t>(std::min(segment.sectors, kMostBlocksToCheck));
    const int64_t got = readVobs(segment.first_sector, count, bytes.data());
    for (int64_t i = 0; i < got; ++i)
      if (isScrambled(bytes.data() + i * kSectorBytes)) return true;
  }
  return false;
}

/// Adds what the disc says of the streams. Sound that begins late has been found without its
/// format.
void LMDVDTitleSource::describeStreams() {
  AVFormatContext& context = *formatContext();
  const auto [width, height] = pictureSize(context, state_->title->video());
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    const AVMediaType type = stream.codecpar->codec_type;
    if (type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_SUBTITLE) continue;
    const auto& tracks =
        type == AVMEDIA_TYPE_AUDIO ? state_->title->audioTracks() : state_->title->subtitleTracks();
    const auto track = std::ranges::find(tracks, stream.id, &LMDVDTrack::stream_id);
    if (track == tracks.end()) continue;
    if (!track->language.empty())
      av_dict_set(&stream.metadata, "language", threeLetters(track->language).c_str(), 0);
    stream.disposition |= dispositionOf(track->kind);
    if (type == AVMEDIA_TYPE_SUBTITLE)
      setExtradata(*stream.codecpar, subpictureHeader(*state_->title->palette(), width, height));
    if (type != AVMEDIA_TYPE_AUDIO || stream.codecpar->sample_rate > 0) continue;
    stream.codecpar->sample_rate = track->sample_rate;
    av_channel_layout_default(&stream.codecpar->ch_layout, track->channels);
  }
}

/// Makes the title's chapters the container's, as if it held them itself. The context owns them.
void LMDVDTitleSource::addChapters() {
  AVFormatContext& context = *formatContext();
  const auto times = chapterTimes();
  for (size_t i = 0; i < times.size(); ++i) {
    auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (!chapter) return;
    chapter->id = static_cast<int64_t>(i);
    chapter->time_base = kMicroseconds;
    chapter->start = context.start_time + times[i];
    chapter->end = context.start_time + (i + 1 < times.size() ? times[i + 1] : duration());
    av_dict_set(&chapter->metadata, "title", fmt::format("Chapter {}", i + 1).c_str(), 0);
    int count = static_cast<int>(context.nb_chapters);
    av_dynarray_add(&context.chapters, &count, chapter);
    context.nb_chapters = static_cast<unsigned>(count);
  }
}

bool LMDVDTitleSource::isDVD() const { return true; }

std::string LMDVDTitleSource::name() const {
  const State& state = *state_;
  return fmt::format("{}_{}_{}", state.dvd ? state.dvd->volume() : "",
                     state.title_set ? state.title_set->title_set() : 0,
                     state.title ? state.title->title() + 1 : 1);
}

std::string LMDVDTitleSource::path() const { return state_->dvd ? state_->dvd->path() : ""; }

std::optional<std::vector<std::string>> LMDVDTitleSource::audioNames() const {
  return state_->title_set ? std::optional(state_->title_set->audioLanguages()) : std::nullopt;
}

std::optional<std::vector<std::string>> LMDVDTitleSource::subtitleNames() const {
  return state_->title_set ? std::optional(state_->title_set->subtitleLanguages()) : std::nullopt;
}

int64_t LMDVDTitleSource::filesize() const { return state_->blocks * kSectorBytes; }

int32_t LMDVDTitleSource::buffer_size() const { return kBufferBytes; }

std::vector<int64_t> LMDVDTitleSource::chapterTimes() {
  std::vector<int64_t> times;
  if (!state_->title) return times;
  for (const size_t cell : state_->title->chapters()) times.push_back(timeOfCell(cell));
  return times;
}

/// Where a cell begins in the stream, microseconds: by its own navigation, or else as the disc
/// states.
int64_t LMDVDTitleSource::timeOfCell(size_t index) const {
  const auto& cells = state_->cells();
  const auto segment = state_->segmentOfCell[index];
  const auto own = segment ? state_->timesAt(cells[index].first_sector) : std::nullopt;
  if (own) {
    const Segment& holder = state_->segments[*segment];
    return av_rescale_q(holder.start + int64_t{own->start} - holder.own_start - kFirstTick, kTicks,
                        kMicroseconds);
  }
  int64_t stated = 0;
  for (size_t i = 0; i < index; ++i) stated += cells[i].duration;
  return std::min(stated, duration());
}

int64_t LMDVDTitleSource::duration() const {
  if (state_->segments.empty()) return 0;
  const Segment& last = state_->segments.back();
  return av_rescale_q(last.start + last.length - kFirstTick, kTicks, kMicroseconds);
}

}  // namespace kestrel
