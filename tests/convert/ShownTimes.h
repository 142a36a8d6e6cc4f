#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"

namespace kestrel::test {

/// When each picture of a file is shown, seconds, by ffprobe.
inline std::vector<double> shownTimes(const std::filesystem::path& file) {
  const auto json = ffprobeJson(file, {"-select_streams", "v:0", "-show_frames", "-show_entries",
                                       "frame=best_effort_timestamp_time"});
  std::vector<double> times;
  for (const auto& frame : json.at("frames"))
    times.push_back(std::stod(frame.at("best_effort_timestamp_time").get<std::string>()));
  return times;
}

}  // namespace kestrel::test
