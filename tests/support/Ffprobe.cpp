#include "tests/support/Ffprobe.h"

#include <stdexcept>

#include "tests/support/Peer.h"

namespace kestrel::test {

nlohmann::json ffprobeJson(const std::filesystem::path& file,
                           const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"ffprobe", "-v", "error", "-of", "json"};
  if (arguments.empty()) {
    command.insert(command.end(), {"-show_format", "-show_streams", "-show_chapters"});
  } else {
    command.insert(command.end(), arguments.begin(), arguments.end());
  }
  command.push_back(file.string());

  const RunResult result = runPeer(command);
  if (result.status != 0) {
    throw std::runtime_error("ffprobe '" + file.string() + "': " + result.err);
  }
  return nlohmann::json::parse(result.out);
}

}  // namespace kestrel::test
