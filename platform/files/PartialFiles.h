#pragma once

#include <string>

namespace kestrel {

/// Files and folders of this process that must not outlive it: `AtomicFile::removeAll` removes them
/// where the program ends without destroying its objects.

/// Notes one; false once all have been removed, and for one that is noted already.
bool notePartial(const std::string& path);

/// Removes one, with all that is in it, and forgets it.
void removePartial(const std::string& path);

}  // namespace kestrel
