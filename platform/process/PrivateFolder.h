#pragma once

#include <string>

namespace kestrel {

/// Makes a folder that only this user may enter. False where that is not possible, and where
/// something else has its name: a link, another user's folder, or one that others may enter.
bool makePrivateFolder(const std::string& path);

}  // namespace kestrel
