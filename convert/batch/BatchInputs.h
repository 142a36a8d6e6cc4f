#pragma once

#include <kestrel/convert/Events.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kestrel {

/// An input of a batch.
struct BatchInput {
  std::string path;
  std::filesystem::path below;  ///< the folder that it lies in, seen from the one that was named
};

/// The inputs that names stand for: files as they are, and of folders that are no discs every movie
/// and sound file, in the order of their names; nothing of `exceptFolder` and nothing hidden. A
/// file that is named as a movie is one of them, can it be read or not. Throws a `Failure` of the
/// input for a folder that cannot be read.
std::vector<BatchInput> batchInputs(const std::vector<std::string>& names, bool recursive,
                                    const std::string& exceptFolder, const Interrupt& interrupt);

}  // namespace kestrel
