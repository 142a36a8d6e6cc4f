#pragma once

#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace kestrel::test {

/// Runs ffmpeg or ffprobe to its end.
///
/// What they say of files that do not change, fixtures and real clips, takes most of the tests'
/// time, and many tests ask the same. So the answer is kept beside the fixtures for as long as the
/// command and the files, by size and time, are the same.
RunResult runPeer(const std::vector<std::string>& command);

}  // namespace kestrel::test
