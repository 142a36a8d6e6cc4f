#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dvd/DVDOwners.h"

namespace kestrel {

/// Opens a volume; null for a path that is none.
DVDReaderPtr openVolume(const std::string& path);

/// The volume's own name, "" where it has none (a folder has none).
std::string volumeIdentifier(dvd_reader_t* reader);

/// The manager's information, with its first table alone where it is not the backup that is read;
/// null where neither can be. libdvdread breaks on some damage in the other tables, which hardly
/// anybody needs.
IfoPtr openManager(dvd_reader_t* reader);

/// One line of the manager's table of titles.
struct TitleEntry {
  int32_t title_set = 0;
  int32_t number = 0;  ///< of the title in its title set, from 1
  int32_t chapters = 0;
  int32_t angles = 0;
};

/// The manager's table of titles, which begins at `sector` of its information: title 1 comes first.
/// Read from the backup where the file itself is damaged; empty where both are.
std::vector<TitleEntry> readTitleTable(dvd_reader_t* reader, uint32_t sector);

/// The information of a title set; null where it can't be read, by its backup neither.
IfoPtr openTitleSet(dvd_reader_t* reader, int number);

}  // namespace kestrel
