#pragma once

#include <string>

#include "dvd/DVDOwners.h"

namespace kestrel {

/// Opens a volume; null for a path that is none.
DVDReaderPtr openVolume(const std::string& path);

/// The volume's own name, "" where it has none (a folder has none).
std::string volumeIdentifier(dvd_reader_t* reader);

/// The information of the manager (0) or a title set; null where it can't be read, by its backup
/// neither.
IfoPtr openInformation(dvd_reader_t* reader, int title_set);

}  // namespace kestrel
