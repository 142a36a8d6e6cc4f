#include "dvd/TitleSetReader.h"

#include <kestrel/LibMedia.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

namespace kestrel {

namespace {

constexpr int32_t kNoSector = 0x7FFFFFFF;
constexpr uint32_t kCellAddressBytes = 12;

/// No disc has more; a chain that claims more is damaged.
constexpr size_t kMostAngles = 9;

using MediaList = std::vector<std::shared_ptr<LMDVDMedia>>;

/// The first byte of the video attributes as it stands on the disc. libdvdread takes it apart from
/// the top on, two bits each.
unsigned firstAttributeByte(const video_attr_t& attributes) {
  return attributes.mpeg_version << 6U | attributes.video_format << 4U |
         attributes.display_aspect_ratio << 2U | attributes.permitted_df;
}

/// The letters, "" unless they are letters that name a language.
std::string languageOf(uint16_t code) {
  std::string letters = lettersOf(code);
  const bool areLetters =
      std::ranges::all_of(letters, [](unsigned char c) { return std::isalpha(c) != 0; });
  if (!areLetters || letters == "xx") return {};
  std::ranges::transform(letters, letters.begin(), [](unsigned char c) { return std::tolower(c); });
  return letters;
}

template <typename Attributes>
std::vector<std::string> displayNames(const Attributes* attributes, size_t count) {
  std::vector<std::string> names;
  for (size_t i = 0; i < count; ++i)
    names.push_back(LibMedia::displayStringForLanguage(lettersOf(attributes[i].lang_code)));
  return names;
}

void addTrack(std::vector<LMDVDTrack>& tracks, uint32_t stream_id, uint16_t code) {
  LMDVDTrack track;
  track.track = static_cast<uint32_t>(tracks.size());
  track.stream_id = static_cast<int32_t>(stream_id);
  track.language = languageOf(code);
  if (!track.language.empty()) track.name = LibMedia::displayStringForLanguage(track.language);
  tracks.push_back(std::move(track));
}

/// The id of a container's first sound stream of a format, as the disc numbers formats.
uint32_t firstStreamId(unsigned format) {
  switch (format) {
    case 2:  // MPEG
    case 3:
      return 0x1C0;
    case 4:  // LPCM
      return 0xA0;
    case 6:  // DTS
      return 0x88;
    default:  // AC-3
      return 0x80;
  }
}

/// The codec of a disc's format of sound.
std::string audioCodecOf(unsigned format) {
  switch (format) {
    case 0:
      return "ac3";
    case 2:  // MPEG-1, or its extension, whose decoders are the same
    case 3:
      return "mp2";
    case 4:
      return "pcm_dvd";
    case 6:
      return "dts";
    default:
      return {};
  }
}

LMDVDTrackKind audioKindOf(unsigned code) {
  using Kind = LMDVDTrackKind;
  constexpr std::array<Kind, 5> kKinds{Kind::kUnspecified, Kind::kNormal, Kind::kVisuallyImpaired,
                                       Kind::kCommentary, Kind::kAlternateCommentary};
  return code < kKinds.size() ? kKinds[code] : Kind::kUnspecified;
}

LMDVDTrackKind subtitleKindOf(unsigned code) {
  using Kind = LMDVDTrackKind;
  constexpr auto kNone = Kind::kUnspecified;
  constexpr std::array<Kind, 16> kKinds{kNone,
                                        Kind::kNormal,
                                        Kind::kLarge,
                                        Kind::kChildren,
                                        kNone,
                                        Kind::kCaptions,
                                        Kind::kLargeCaptions,
                                        Kind::kChildrensCaptions,
                                        kNone,
                                        Kind::kForced,
                                        kNone,
                                        kNone,
                                        kNone,
                                        Kind::kCommentary,
                                        Kind::kLargeCommentary,
                                        Kind::kChildrensCommentary};
  return code < kKinds.size() ? kKinds[code] : kNone;
}

/// What a disc states of a sound track's format.
void describe(LMDVDTrack& track, const audio_attr_t& attributes) {
  constexpr unsigned kLinear = 4;
  constexpr unsigned kSurroundMode = 2;
  track.channels = attributes.channels + 1;
  track.sample_rate = attributes.sample_frequency == 1 ? 96000 : 48000;
  track.codec = audioCodecOf(attributes.audio_format);
  if (attributes.audio_format == kLinear && attributes.quantization < 3)
    track.bits = 16 + 4 * attributes.quantization;
  // libdvdread takes the byte apart by the fields of karaoke alone: this one holds the bit.
  track.isSurround = attributes.application_mode == kSurroundMode &&
                     (attributes.app_info.karaoke.version & 2U) != 0;
  track.kind = audioKindOf(attributes.code_extension);
}

size_t audioCount(const vtsi_mat_t& table) {
  return std::min<size_t>(table.nr_of_vts_audio_streams, std::size(table.vts_audio_attr));
}

size_t subtitleCount(const vtsi_mat_t& table) {
  return std::min<size_t>(table.nr_of_vts_subp_streams, std::size(table.vts_subp_attr));
}

std::vector<LMDVDTrack> audioTracksOf(const vtsi_mat_t& table, const pgc_t& chain) {
  constexpr uint16_t kIsThere = 0x8000;
  std::vector<LMDVDTrack> tracks;
  for (size_t i = 0; i < audioCount(table); ++i) {
    const uint16_t control = chain.audio_control[i];
    const audio_attr_t& attributes = table.vts_audio_attr[i];
    if (!(control & kIsThere)) continue;
    addTrack(tracks, firstStreamId(attributes.audio_format) + (control >> 8 & 7U),
             attributes.lang_code);
    describe(tracks.back(), attributes);
  }
  return tracks;
}

/// A subpicture stream may come in several forms, one for each way to fit the picture to a screen:
/// the one for the whole picture is taken.
std::vector<LMDVDTrack> subtitleTracksOf(const vtsi_mat_t& table, const pgc_t& chain) {
  constexpr uint32_t kIsThere = 0x80000000;
  constexpr unsigned kWideAspect = 3;
  constexpr uint32_t kFirstStreamId = 0x20;
  const unsigned shift = table.vts_video_attr.display_aspect_ratio == kWideAspect ? 16 : 24;
  std::vector<LMDVDTrack> tracks;
  for (size_t i = 0; i < subtitleCount(table); ++i) {
    const uint32_t control = chain.subp_control[i];
    const subp_attr_t& attributes = table.vts_subp_attr[i];
    if (!(control & kIsThere)) continue;
    addTrack(tracks, kFirstStreamId + (control >> shift & 0x1FU), attributes.lang_code);
    tracks.back().codec = "dvd_subtitle";
    tracks.back().kind = subtitleKindOf(attributes.code_extension);
  }
  return tracks;
}

uint32_t addressCount(const c_adt_t& table) {
  return table.last_byte < 7 || !table.cell_adr_table ? 0
                                                      : (table.last_byte - 7) / kCellAddressBytes;
}

/// The span of each VOB, from the addresses of its cells. An address whose VOB does not exist
/// changes nothing.
void readVobs(LMDVDTitleSet& set, const c_adt_t& table) {
  MediaList medias;
  for (unsigned i = 0; i < table.nr_of_vobs; ++i)
    medias.push_back(std::make_shared<LMDVDMedia>(kNoSector, 0));
  set.setMedias(std::move(medias));

  for (uint32_t i = 0; i < addressCount(table); ++i) {
    const cell_adr_t& cell = table.cell_adr_table[i];
    const auto media = set.mediaForVob(uint32_t{cell.vob_id} - 1);
    if (!media) continue;
    const auto start = static_cast<uint32_t>(media->start_sector());
    const auto sectors = static_cast<uint32_t>(media->sector_count());
    const uint32_t end = std::max(sectors != 0 ? start + sectors : 0, cell.last_sector + 1);
    const uint32_t newStart = std::min(start, cell.start_sector);
    media->setStart_sector(static_cast<int32_t>(newStart));
    media->setSector_count(static_cast<int32_t>(end - newStart));
  }
}

/// Whether a cell shows what another one before it shows from a different angle.
bool isFurtherAngle(const cell_playback_t& cell) {
  return cell.block_type == BLOCK_TYPE_ANGLE_BLOCK &&
         (cell.block_mode == BLOCK_MODE_IN_BLOCK || cell.block_mode == BLOCK_MODE_LAST_CELL);
}

/// The pieces of an interleaved cell, from the addresses of all cells' pieces.
std::vector<LMDVDSectors> piecesOf(const cell_playback_t& cell, const cell_position_t& position,
                                   const c_adt_t& table) {
  std::vector<LMDVDSectors> pieces;
  for (uint32_t i = 0; i < addressCount(table); ++i) {
    const cell_adr_t& address = table.cell_adr_table[i];
    if (address.vob_id == position.vob_id_nr && address.cell_id == position.cell_nr &&
        address.start_sector >= cell.first_sector && address.last_sector <= cell.last_sector &&
        address.start_sector <= address.last_sector)
      pieces.push_back({address.start_sector, address.last_sector});
  }
  std::ranges::sort(pieces, {}, &LMDVDSectors::first);
  return pieces;
}

std::vector<LMDVDCell> cellsOf(const pgc_t& chain, const c_adt_t& table) {
  std::vector<LMDVDCell> cells;
  for (unsigned c = 0; c < chain.nr_of_cells; ++c) {
    const cell_playback_t& cell = chain.cell_playback[c];
    LMDVDCell own{cell.first_sector,
                  cell.last_sector,
                  cell.last_vobu_start_sector,
                  chain.cell_position ? chain.cell_position[c].vob_id_nr : 0,
                  cell.stc_discontinuity != 0,
                  microsecondsOf(cell.playback_time),
                  {}};
    if (cell.interleaved && chain.cell_position)
      own.pieces = piecesOf(cell, chain.cell_position[c], table);
    cells.push_back(std::move(own));
  }
  return cells;
}

/// The cells of each angle: of the cells that stand side by side for one stretch each takes its
/// own.
std::vector<std::vector<LMDVDCell>> anglesOf(const pgc_t& chain,
                                             const std::vector<LMDVDCell>& cells) {
  std::vector<std::vector<size_t>> stretches;
  size_t angles = 1;
  for (size_t c = 0; c < cells.size(); ++c) {
    if (!isFurtherAngle(chain.cell_playback[c]))
      stretches.push_back({c});
    else if (!stretches.empty())
      stretches.back().push_back(c);
    if (!stretches.empty()) angles = std::max(angles, stretches.back().size());
  }
  angles = std::min(angles, kMostAngles);
  std::vector<std::vector<LMDVDCell>> all(angles);
  for (const auto& stretch : stretches)
    for (size_t angle = 0; angle < angles; ++angle)
      all[angle].push_back(cells[angle < stretch.size() ? stretch[angle] : stretch.front()]);
  return all;
}

/// The pictures that a title set's attributes tell of.
LMDVDVideo videoOf(const video_attr_t& attributes) {
  constexpr std::array<const char*, 2> kCodecs{"mpeg1video", "mpeg2video"};
  constexpr std::array<const char*, 2> kStandards{"NTSC", "PAL"};
  constexpr std::array<int32_t, 4> kWidths{720, 704, 352, 352};
  constexpr unsigned kHalfHeight = 3;
  LMDVDVideo video;
  if (attributes.mpeg_version < kCodecs.size()) video.codec = kCodecs[attributes.mpeg_version];
  if (attributes.video_format < kStandards.size()) {
    video.standard = kStandards[attributes.video_format];
    video.width = kWidths[attributes.picture_size];
    video.height = (attributes.video_format == 1 ? 576 : 480) /
                   (attributes.picture_size == kHalfHeight ? 2 : 1);
  }
  if (attributes.display_aspect_ratio == 0) video.aspect = {4, 3};
  if (attributes.display_aspect_ratio == 3) video.aspect = {16, 9};
  const bool isWide = attributes.display_aspect_ratio == 3;
  video.allowsPanScan = isWide && (attributes.permitted_df == 0 || attributes.permitted_df == 1);
  video.allowsLetterbox = isWide && (attributes.permitted_df == 0 || attributes.permitted_df == 2);
  video.isLetterboxed = !isWide && attributes.letterboxed != 0;
  video.isFilm = attributes.video_format == 1 && attributes.film_mode != 0;
  video.hasCaptions =
      attributes.video_format == 0 && (attributes.line21_cc_1 != 0 || attributes.line21_cc_2 != 0);
  return video;
}

/// Neighbouring cells of one VOB make one run.
MediaList runsOf(const std::vector<LMDVDCell>& cells) {
  MediaList runs;
  for (const LMDVDCell& cell : cells) {
    const auto first = static_cast<int32_t>(cell.first_sector);
    const auto count = static_cast<int32_t>(cell.last_sector - cell.first_sector + 1);
    const auto endOf = [](const LMDVDMedia& run) {
      return static_cast<uint32_t>(run.start_sector()) + static_cast<uint32_t>(run.sector_count());
    };
    const bool goesOn = !runs.empty() && endOf(*runs.back()) == cell.first_sector &&
                        runs.back()->vob_id() == cell.vob_id;
    if (goesOn)
      runs.back()->setSector_count(static_cast<int32_t>(
          static_cast<uint32_t>(runs.back()->sector_count()) + static_cast<uint32_t>(count)));
    else
      runs.push_back(std::make_shared<LMDVDMedia>(first, count, cell.vob_id));
  }
  return runs;
}

/// The first cells of the programs, as far as they rise, counted without those of further angles.
std::vector<size_t> chaptersOf(const pgc_t& chain) {
  std::vector<size_t> chapters;
  for (unsigned p = 0; chain.program_map && p < chain.nr_of_programs; ++p) {
    const size_t cell = chain.program_map[p];
    if (cell < 1 || cell > chain.nr_of_cells) continue;
    const std::span cells(chain.cell_playback, cell);
    if (isFurtherAngle(cells.back())) continue;
    const size_t index =
        cell - 1 - static_cast<size_t>(std::ranges::count_if(cells, isFurtherAngle));
    if (chapters.empty() || index > chapters.back()) chapters.push_back(index);
  }
  return chapters;
}

std::shared_ptr<LMDVDTitle> readTitle(const vtsi_mat_t& table, const c_adt_t& addresses,
                                      const pgc_t& chain, int32_t index) {
  auto title = std::make_shared<LMDVDTitle>();
  title->setTitle(index);
  SubtitlePalette palette{};
  for (size_t i = 0; i < palette.size(); ++i) palette[i] = chain.palette[i];
  title->setPalette(palette);
  const auto cells = cellsOf(chain, addresses);
  title->setMedias(runsOf(cells));
  title->setCells(anglesOf(chain, cells));
  title->setChapters(chaptersOf(chain));
  title->setDuration(microsecondsOf(chain.playback_time));
  title->setAudioTracks(audioTracksOf(table, chain));
  title->setSubtitleTracks(subtitleTracksOf(table, chain));
  title->setVideo(videoOf(table.vts_video_attr));
  return title;
}

}  // namespace

int64_t microsecondsOf(const dvd_time_t& time) {
  constexpr int64_t kSecond = 1000000;
  const auto decimal = [](unsigned byte) -> int64_t {
    const unsigned tens = byte >> 4;
    const unsigned ones = byte & 0xF;
    return tens > 9 || ones > 9 ? 0 : tens * 10 + ones;
  };
  const int64_t pictures = decimal(time.frame_u & 0x3F);
  // The two high bits: 1 for 25 pictures per second, 3 for 30000/1001.
  const bool isPal = time.frame_u >> 6 == 1;
  const int64_t fraction = isPal ? pictures * kSecond / 25 : pictures * 1001 * kSecond / 30000;
  return ((decimal(time.hour) * 60 + decimal(time.minute)) * 60 + decimal(time.second)) * kSecond +
         fraction;
}

std::shared_ptr<LMDVDTitleSet> readTitleSet(const ifo_handle_t& information, int32_t number) {
  const vtsi_mat_t& table = *information.vtsi_mat;
  auto set = std::make_shared<LMDVDTitleSet>();
  set->setTitle_set(number);

  const unsigned attributes = firstAttributeByte(table.vts_video_attr);
  const unsigned format = attributes >> 2 & 3;
  if (format == 0) set->setDvdFormat("ntsc");
  if (format == 1) set->setDvdFormat("pal");
  const unsigned aspect = attributes >> 4 & 3;
  if (aspect == 0) set->setDisplay_aspect_ratio("4:3");
  if (aspect == 3) set->setDisplay_aspect_ratio("16:9");

  set->setAudioLanguages(displayNames(table.vts_audio_attr, audioCount(table)));
  set->setSubtitleLanguages(displayNames(table.vts_subp_attr, subtitleCount(table)));
  readVobs(*set, *information.vts_c_adt);

  const pgcit_t& chains = *information.vts_pgcit;
  std::vector<std::shared_ptr<LMDVDTitle>> titles;
  for (int32_t k = 0; chains.pgci_srp && k < chains.nr_of_pgci_srp; ++k) {
    const pgc_t* chain = chains.pgci_srp[k].pgc;
    if (chain && chain->cell_playback)
      titles.push_back(readTitle(table, *information.vts_c_adt, *chain, k));
  }
  set->setTitles(std::move(titles));
  return set;
}

std::shared_ptr<LMDVDTitle> numberedTitle(const ifo_handle_t& information, const LMDVDTitleSet& set,
                                          int32_t number) {
  const vts_ptt_srpt_t* table = information.vts_ptt_srpt;
  if (!table || !table->title || number < 1 || number > table->nr_of_srpts) return nullptr;
  const ttu_t& chapters = table->title[number - 1];
  if (chapters.nr_of_ptts == 0 || !chapters.ptt) return nullptr;
  const int32_t chain = chapters.ptt[0].pgcn - 1;
  const auto title = std::ranges::find(set.titles(), chain, &LMDVDTitle::title);
  return title != set.titles().end() ? *title : nullptr;
}

}  // namespace kestrel
