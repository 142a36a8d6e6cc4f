#include <kestrel/LMDVDIO.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <algorithm>

#include "dvd/VolumeReader.h"

namespace kestrel {

namespace {

constexpr int kMostTitleSets = 99;

void dumpTitles(const std::vector<TitleEntry>& titles) {
  for (const TitleEntry& title : titles)
    log(fmt::format("title_set_nr {} {} {} angle:{}", title.title_set, title.number, title.chapters,
                    title.angles));
}

void dumpSize(dvd_reader_t* reader, int set) {
  dvd_stat_t status{};
  if (DVDFileStat(reader, set, DVD_READ_TITLE_VOBS, &status) != 0)
    return log(fmt::format("-----title_set {} error", set));
  log(fmt::format("-----title_set {} size {} part {}", set,
                  static_cast<int64_t>(status.size) / 1048576, status.nr_parts));
}

void dumpChain(const pgc_t& chain, int set, int index) {
  log(fmt::format("+++++++title_set {} program:{} cell:{} pgc:{}", set, chain.nr_of_programs,
                  chain.nr_of_cells, index));
  for (int c = 0; chain.cell_playback && chain.cell_position && c < chain.nr_of_cells; ++c) {
    const cell_playback_t& cell = chain.cell_playback[c];
    const cell_position_t& position = chain.cell_position[c];
    log(fmt::format("vob_id:{} cell_nr:{} sector:{} {} time:{:02x}:{:02x}", position.vob_id_nr,
                    position.cell_nr, static_cast<int32_t>(cell.first_sector),
                    static_cast<int32_t>(cell.last_sector), cell.playback_time.minute,
                    cell.playback_time.second));
  }
  const dvd_time_t& time = chain.playback_time;
  log(fmt::format("time:{:02x}:{:02x}:{:02x}", time.hour, time.minute, time.second));
}

void dumpAddresses(const c_adt_t& table) {
  const uint32_t count =
      table.last_byte < 7 || !table.cell_adr_table ? 0 : (table.last_byte - 7) / sizeof(cell_adr_t);
  for (uint32_t i = 0; i < count; ++i) {
    const cell_adr_t& cell = table.cell_adr_table[i];
    log(fmt::format("vob:{} cell:{} cell:{} {}", cell.vob_id, cell.cell_id,
                    static_cast<int32_t>(cell.start_sector),
                    static_cast<int32_t>(cell.last_sector)));
  }
}

void dumpTitleSet(dvd_reader_t* reader, int set) {
  dumpSize(reader, set);
  const IfoPtr information = openTitleSet(reader, set);
  if (information && information->vts_pgcit) {
    const pgcit_t& chains = *information->vts_pgcit;
    for (int k = 0; chains.pgci_srp && k < chains.nr_of_pgci_srp; ++k)
      if (const pgc_t* chain = chains.pgci_srp[k].pgc) dumpChain(*chain, set, k);
  }
  if (information && information->vts_c_adt) dumpAddresses(*information->vts_c_adt);
  const DVDFilePtr vobs(DVDOpenFile(reader, set, DVD_READ_TITLE_VOBS));
  log(fmt::format("media {} blocks {}", static_cast<const void*>(vobs.get()),
                  vobs ? static_cast<int64_t>(DVDFileSize(vobs.get())) : 0));
}

}  // namespace

void LMDVDIO::test(const std::string& path) {
  const DVDReaderPtr reader = openVolume(path);
  const std::string identifier = reader ? volumeIdentifier(reader.get()) : "";
  log(fmt::format("dvd {} {}", static_cast<const void*>(reader.get()), identifier));
  if (!reader) return;
  const IfoPtr manager = openManager(reader.get());
  if (!manager || !manager->vmgi_mat) return;
  const int count = manager->vmgi_mat->vmg_nr_of_title_sets;
  log(fmt::format("title_sets {} Region 0x{:02x}", count,
                  (manager->vmgi_mat->vmg_category >> 16 & 0xFF) ^ 0xFF));
  dumpTitles(readTitleTable(reader.get(), manager->vmgi_mat->tt_srpt));
  for (int set = 1; set <= std::min(count, kMostTitleSets); ++set) dumpTitleSet(reader.get(), set);
}

}  // namespace kestrel
