#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kestrel::test {

/// What ffprobe says of a file, as JSON. Without `arguments` that is its format, streams and
/// chapters; otherwise what they ask for (such as `{"-show_packets", "-select_streams", "v"}`).
/// Throws std::runtime_error when ffprobe fails.
nlohmann::json ffprobeJson(const std::filesystem::path& file,
                           const std::vector<std::string>& arguments = {});

}  // namespace kestrel::test
