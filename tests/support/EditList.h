#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace kestrel::test {

/// A stretch of a track that is shown.
struct Edit {
  uint32_t duration = 0;  ///< in units of the movie, milliseconds in ffmpeg's files
  uint32_t start = 0;     ///< in units of the track
};

/// Gives the first track of an MPEG-4 file, whose index lies behind its media as ffmpeg writes it,
/// another edit list. Throws std::runtime_error where it has none.
void setEdits(const std::filesystem::path& file, const std::vector<Edit>& edits);

}  // namespace kestrel::test
