#pragma once

#include <kestrel/convert/Compose.h>

#include <string>

/// "FILE[:TRACK][@POSITION]" or "DISC#TITLE[.ANGLE][:TRACK][@POSITION]"; the position is written
/// like any time. A text that names a file as a whole is that file.
kestrel::Placement parsePlacement(const std::string& text);
