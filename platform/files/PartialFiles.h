#pragma once

#include <filesystem>
#include <string>

namespace kestrel {

/// Files and folders of this process that must not outlive it: `AtomicFile::removeAll` removes them
/// where the program ends without destroying its objects.

/// The name that something gets which is to become `target`: ".movie.partial-4711-0.mp4" beside
/// "movie.mp4". The numbers tell processes, and files within one, apart.
std::string partialBeside(const std::filesystem::path& target);

/// Notes one; false once all have been removed, and for one that is noted already.
bool notePartial(const std::string& path);

/// Removes one, with all that is in it, and forgets it.
void removePartial(const std::string& path);

}  // namespace kestrel
