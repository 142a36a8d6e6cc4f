#pragma once

#include <string>
#include <vector>

namespace kestrel {

/// Whether two names, given as users write them, mean one file, be it there or not.
bool isSameFile(const std::string& one, const std::string& other);

/// Throws `Failure` when `target` is one of the files that are read.
void requireNoInput(const std::string& target, const std::vector<std::string>& inputs);

}  // namespace kestrel
