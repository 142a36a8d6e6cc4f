#pragma once

#include <string>

/// Writes all of `text` to standard output. Throws `Failure` when that can't be done (a full disk);
/// a reader that has gone away ends the program without a message.
void writeStandardOutput(const std::string& text);
