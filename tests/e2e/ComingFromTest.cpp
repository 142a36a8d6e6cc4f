#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// The commands in the tables below a heading of the page for those who come from other programs,
/// as a shell takes them.
std::vector<std::string> commandsBelow(const std::string& heading) {
  const fs::path root = fixture("metadata.txt").parent_path().parent_path().parent_path();
  std::ifstream page(root / "docs" / "coming-from.md");
  std::vector<std::string> commands;
  bool isBelow = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("## ")) isBelow = line == "## " + heading;
    if (!isBelow || !line.starts_with("|")) continue;
    // A table's cells write '|' as "\|".
    for (size_t at = 0; (at = line.find("\\|", at)) != std::string::npos;) line.erase(at, 1);
    constexpr std::string_view kBegin = "`kestrel ";
    for (size_t at = 0; (at = line.find(kBegin, at)) != std::string::npos;) {
      const size_t end = line.find('`', at + 1);
      commands.push_back(line.substr(at + 1, end - at - 1));
      at = end;
    }
  }
  return commands;
}

class ComingFrom : public testing::TestWithParam<const char*> {
 protected:
  static void lay(const fs::path& folder) {
    fs::copy_file(fixture("film.mkv"), folder / "film.mkv");
    for (const char* name : {"one", "two"}) {
      fs::copy_file(fixture("av25.mp4"), folder / (std::string(name) + ".mp4"));
      fs::copy_file(fixture("av25.ts"), folder / (std::string(name) + ".ts"));
    }
  }
};

TEST_P(ComingFrom, EveryCommandWorks) {
  const auto commands = commandsBelow(GetParam());
  ASSERT_GE(commands.size(), 3u);
  for (const std::string& command : commands) {
    const TempDir folder;
    lay(folder.path());
    if (command.find("DISC") != std::string::npos)
      fs::create_symlink(discFixture("ntsc") / "disc", folder / "DISC");
    const auto programs = fs::path(kestrelBinary()).parent_path().string();
    const RunResult result = run({"sh", "-c", "PATH='" + programs + "':\"$PATH\"; " + command},
                                 {.workingDirectory = folder.path()});
    EXPECT_EQ(result.status, 0) << command << "\n" << result.err;
  }
}

INSTANTIATE_TEST_SUITE_P(Page, ComingFrom,
                         testing::Values("Converting", "Pictures", "Sound and other tracks",
                                         "Cutting and joining", "Looking", "Discs"),
                         [](const auto& section) {
                           std::string name = section.param;
                           std::erase(name, ' ');
                           return name;
                         });

/// Whatever is written of the program stands in a section that is run.
TEST(ComingFromPage, HasNoOtherCommands) {
  EXPECT_TRUE(commandsBelow("What is different").empty());
}

}  // namespace
}  // namespace kestrel::test
