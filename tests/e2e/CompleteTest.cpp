#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/dvd/Disc.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/// The values that the program answers to shells.
Arguments valuesOf(const std::string& question, const Arguments& typed) {
  const RunResult result = run(joined({kestrelBinary(), "complete", question, "--"}, typed));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  Arguments values;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, HasSubstr("\t"));
    values.push_back(line.substr(0, line.find('\t')));
  }
  return values;
}

TEST(Complete, TitlesAreThoseOfTheDisc) {
  const std::string disc = discImage("angles").string();
  const RunResult listed = runPeer({"lsdvd", disc});
  Arguments titles{"main"};
  const std::regex title("(^|\n)Title: 0*([0-9]+)");
  for (std::sregex_iterator at(listed.out.begin(), listed.out.end(), title), end; at != end; ++at)
    titles.push_back((*at)[2]);
  ASSERT_GT(titles.size(), 1u) << listed.out << listed.err;
  EXPECT_EQ(valuesOf("titles", {"convert", disc, "out.mkv", "--title", ""}), titles);
}

TEST(Complete, NamesMayBeTypedWithQuotesAndBackslashes) {
  const TempDir folder;
  const auto disc = folder / "a disc's.iso";
  std::filesystem::copy(discImage("angles"), disc);
  const std::string path = folder.path().string();
  EXPECT_THAT(valuesOf("titles", {"convert", path + "/a\\ disc\\'s.iso"}), testing::Contains("1"));
  EXPECT_THAT(valuesOf("titles", {"convert", "\"" + path + "/a disc\\'s.iso\""}),
              testing::Contains("1"));
}

TEST(Complete, NothingIsSaidWhereThereIsNoAnswer) {
  EXPECT_THAT(valuesOf("titles", {"convert", "nowhere.iso"}), IsEmpty());
  EXPECT_THAT(valuesOf("titles", {"convert", kestrelBinary()}), IsEmpty());
  EXPECT_THAT(valuesOf("sound-tracks", {"convert", kestrelBinary()}), IsEmpty());
  EXPECT_THAT(valuesOf("encoder-presets", {"convert", "--video-codec"}), IsEmpty());
  EXPECT_THAT(valuesOf("encoder-presets", {"convert", "--video-codec", "nonsense"}), IsEmpty());
  EXPECT_THAT(valuesOf("the weather", {}), IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
