#include <kestrel/convert/Compose.h>

#include <charconv>
#include <filesystem>
#include <system_error>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Values.h>

namespace kestrel {

namespace {

bool isFile(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

/// Takes ":NUMBER" off the end of a path that is no file as it stands.
void takeTrack(Placement& placement) {
  const size_t colon = placement.path.rfind(':');
  if (isFile(placement.path) || colon == std::string::npos) return;
  const std::string file = placement.path.substr(0, colon);
  const std::string text = placement.path.substr(colon + 1);
  const char* const end = text.data() + text.size();
  const auto [next, problem] = std::from_chars(text.data(), end, placement.track);
  const bool isNumber = problem == std::errc{} && next == end && placement.track >= 0;
  if (!isNumber && isFile(file))
    throw Failure::settings("'" + text + "' is no stream of '" + file +
                            "': they are numbers from 0");
  if (!isNumber) {
    placement.track = 0;
    return;
  }
  placement.path = file;
}

}  // namespace

Placement parsePlacement(const std::string& text) {
  Placement placement{text};
  const size_t at = text.rfind('@');
  if (!isFile(text) && at != std::string::npos) {
    placement.path = text.substr(0, at);
    takeTrack(placement);
    placement.position = static_cast<double>(parseTime("the position", text.substr(at + 1))) / 1e6;
  } else {
    takeTrack(placement);
  }
  const TitledPath titled = parseTitledPath(placement.path);
  placement.path = titled.path;
  placement.title = titled.title;
  placement.angle = titled.angle;
  if (placement.path.empty()) throw Failure::settings("'" + text + "' names no file");
  return placement;
}

}  // namespace kestrel
