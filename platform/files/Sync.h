#pragma once

#include <kestrel/Error.h>

#include <string>

namespace kestrel {

/// Waits until the disk has what was written to a file, or which names are in a folder.
Error syncFile(const std::string& path);

}  // namespace kestrel
