#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// The program's commands in the blocks of a page that are fenced as sh, in their order.
std::vector<std::string> commandsOf(const std::string& page) {
  const fs::path root = fixture("metadata.txt").parent_path().parent_path().parent_path();
  std::ifstream file(root / "docs" / page);
  std::vector<std::string> commands;
  bool isInBlock = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("```")) isInBlock = line == "```sh";
    const bool isOurs =
        line.starts_with("kestrel ") || line.find("| kestrel ") != std::string::npos;
    if (isInBlock && isOurs) commands.push_back(line);
  }
  return commands;
}

/// As it is run: conversions are planned, which opens the input and takes or refuses every option;
/// what a pipe carries is converted. Demos, cuts and comparisons of large pictures take long, and
/// have tests of their own. What is played is shorter.
std::string runnable(const std::string& command, const std::string& page) {
  const bool isLong = command.starts_with("kestrel demo ") || command.starts_with("kestrel cut ") ||
                      (command.starts_with("kestrel compare ") && page != "quality.md");
  if (isLong) return "true";
  if (command.starts_with("kestrel play bars.mp4 ")) return "cd short && " + command;
  const bool isPlanned =
      command.starts_with("kestrel convert ") && command.find('|') == std::string::npos;
  return isPlanned ? command + " --dry-run" : command;
}

struct Page {
  const char* name;
  size_t commands;  ///< at least
};

class Pages : public testing::TestWithParam<Page> {
 protected:
  /// What the commands of the pages name, and what those before them would have made.
  static void lay(const fs::path& folder, const std::string& page) {
    const bool isCompared = page == "quality.md";
    fs::copy_file(fixture(isCompared ? "av25.mp4" : "bars.mp4"), folder / "bars.mp4");
    fs::copy_file(folder / "bars.mp4", folder / "small.mp4");
    fs::create_directory(folder / "many");
    fs::copy_file(folder / "bars.mp4", folder / "many" / "bars.mkv");
    if (isCompared) return;
    fs::create_directory(folder / "short");
    fs::copy_file(fixture("numbered25.mp4"), folder / "short" / "bars.mp4");
    fs::create_symlink(discFixture("pal") / "disc.iso", folder / "MOVIE.iso");
    fs::create_symlink(discFixture("angles") / "disc.iso", folder / "CONCERT.iso");
  }
};

TEST_P(Pages, EveryCommandWorks) {
  const auto commands = commandsOf(GetParam().name);
  EXPECT_GE(commands.size(), GetParam().commands);
  const TempDir folder;
  lay(folder.path(), GetParam().name);
  const auto programs = fs::path(kestrelBinary()).parent_path().string();
  for (const std::string& command : commands) {
    const RunResult result = run(
        {"sh", "-c", "PATH='" + programs + "':\"$PATH\"; " + runnable(command, GetParam().name)},
        {.workingDirectory = folder.path(),
         .environment = {"XDG_CONFIG_HOME=" + (folder / "config").string()}});
    EXPECT_EQ(result.status, 0) << command << "\n" << result.err;
  }
}

INSTANTIATE_TEST_SUITE_P(, Pages,
                         testing::Values(Page{"command-line.md", 40}, Page{"dvd.md", 6},
                                         Page{"quality.md", 3}),
                         [](const auto& tested) {
                           std::string name = tested.param.name;
                           std::erase(name, '-');
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace kestrel::test
