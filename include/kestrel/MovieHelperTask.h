#pragma once

#include <kestrel/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace kestrel {

class Task;

/// Starts the program "QTMovieHelperTask" in the folder of the running program, or else the one
/// that is installed with the library, with a command and its arguments, and returns without
/// waiting for it. Throws `TaskError` if it cannot be started.
KESTREL_API std::shared_ptr<Task> launchMovieHelperTask(const std::string& command,
                                                        const std::vector<std::string>& arguments);

}  // namespace kestrel
