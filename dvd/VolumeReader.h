#pragma once

#include <string>

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

/// Reads the manager's table of titles; false where it is damaged.
bool readTitleTable(ifo_handle_t& manager);

/// The information of a title set; null where it can't be read, by its backup neither.
IfoPtr openTitleSet(dvd_reader_t* reader, int number);

}  // namespace kestrel
