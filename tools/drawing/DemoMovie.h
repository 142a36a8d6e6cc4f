#pragma once

#include <string>

/// Draws and sounds the demo movie into a Matroska file, losslessly, by the engine's own output:
/// ten seconds of 1280x720 at 25 pictures a second, a tick and a flash at the start of each second.
/// Throws `Failure` when the file can't be written or a signal stops the program.
void writeDemoMovie(const std::string& path);
