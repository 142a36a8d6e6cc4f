#include <gtest/gtest.h>
#include <kestrel/Version.h>

#include <map>
#include <regex>
#include <string>

#include "tests/support/Process.h"

namespace kestrel::test {
namespace {

/// What the ffmpeg program says of the libraries that it runs with: "libavutil  57. 28.100
/// / 57. 28.100".
std::map<std::string, std::string> versionsOfFfmpeg() {
  std::map<std::string, std::string> versions;
  const std::string text = run({"ffmpeg", "-version"}).out;
  const std::regex line(R"((lib\w+) +\d+\. *\d+\. *\d+ / +(\d+)\. *(\d+)\. *(\d+))");
  for (std::sregex_iterator match(text.begin(), text.end(), line), end; match != end; ++match)
    versions[(*match)[1]] = (*match)[2].str() + "." + (*match)[3].str() + "." + (*match)[4].str();
  return versions;
}

TEST(Version, IsThreeNumbers) {
  EXPECT_TRUE(std::regex_match(version(), std::regex(R"(\d+\.\d+\.\d+)"))) << version();
}

TEST(Version, OfTheLibrariesIsThatOfTheProgramThatSharesThem) {
  const auto expected = versionsOfFfmpeg();
  ASSERT_EQ(expected.count("libavformat"), 1u);
  int compared = 0;
  for (const LibraryVersion& library : libraryVersions()) {
    const auto found = expected.find(library.name);
    if (found == expected.end()) continue;
    EXPECT_EQ(library.version, found->second) << library.name;
    ++compared;
  }
  EXPECT_EQ(compared, 6);
}

}  // namespace
}  // namespace kestrel::test
