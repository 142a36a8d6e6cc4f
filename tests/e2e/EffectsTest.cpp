#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

class Effects : public testing::Test {
 protected:
  RunResult effects(const Arguments& arguments) const {
    return run(joined({kestrelBinary(), "effects"}, arguments),
               {.workingDirectory = folder_.path()});
  }

  const TempDir folder_;
};

TEST_F(Effects, AreListedInTheCataloguesOrder) {
  const RunResult result = effects({"--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::vector<std::string> names;
  std::set<std::string> descriptions;
  const auto document = nlohmann::json::parse(result.out);
  for (const auto& effect : document.at("effects")) {
    names.push_back(effect.at("name"));
    descriptions.insert(effect.at("description").get<std::string>());
  }
  EXPECT_THAT(names, ElementsAre("1935", "1955", "1960", "1970", "Color Invert", "Exposure", "Blur",
                                 "Sharpen", "Vibrance", "Big Softie", "SpotLight", "Line Screen",
                                 "Black White", "Blackout B&W", "Color Control", "Monochrome",
                                 "Glow", "Gloom", "Bloom", "Pixellate", "Bright", "Copper",
                                 "Classical", "New Effection"));
  EXPECT_EQ(descriptions.size(), 24u);
  EXPECT_EQ(descriptions.count(""), 0u);
}

TEST_F(Effects, AreListedOneALineWithWhatTheyDo) {
  const RunResult result = effects({});
  ASSERT_EQ(result.status, 0) << result.err;
  std::istringstream lines(result.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, testing::MatchesRegex("[A-Z1][A-Za-z0-9 &]+  [a-z:, ]+"));
    EXPECT_LE(line.size(), 79u);
  }
  EXPECT_EQ(count, 24);
}

TEST_F(Effects, APreviewIsASheetOfAllOfThem) {
  const std::string input = fixture("av25.mp4").string();
  const RunResult result = effects({"--preview", input, "out.png"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out + result.err, "");
  // Five columns of pictures in their own size, 320 × 180, with 8 pixels around each; 25 pictures.
  const auto stream = streamOf(folder_ / "out.png", "video");
  EXPECT_EQ(stream.at("width"), 5 * 320 + 6 * 8);
  EXPECT_GT(stream.at("height"), 5 * 180);
  EXPECT_LT(stream.at("height"), 5 * 260);
}

TEST_F(Effects, TheUntouchedPictureStandsFirst) {
  const std::string input = fixture("av25.mp4").string();
  ASSERT_EQ(effects({"--preview", "--time", "1.2", input, "out.png"}).status, 0);
  ASSERT_EQ(
      run({kestrelBinary(), "thumb", input, (folder_ / "thumb.png").string(), "--time", "1.2"})
          .status,
      0);
  const std::string sheet = pictureBytes(folder_ / "out.png", "crop=320:ih:8:0,format=rgb24");
  const std::string thumb = pictureBytes(folder_ / "thumb.png", "format=rgb24");
  EXPECT_NE(sheet.find(thumb), std::string::npos);
}

TEST_F(Effects, AnExistingTargetNeedsForce) {
  writeBytes(folder_ / "out.png", "precious");
  const std::string input = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(effects({"--preview", input, "out.png"}), 1, "'out.png' exists"));
  EXPECT_EQ(readBytes(folder_ / "out.png"), "precious");
  EXPECT_EQ(effects({"--preview", input, "out.png", "--force"}).status, 0);
}

TEST_F(Effects, WrongUsageIsToldInOneSentence) {
  const std::string input = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(effects({"--preview"}), 2, "--preview needs"));
  EXPECT_TRUE(endsWithSentence(effects({"--preview", input}), 2, "--preview needs"));
  EXPECT_TRUE(endsWithSentence(effects({input, "out.png"}), 2, "--preview"));
  EXPECT_TRUE(endsWithSentence(effects({"--preview", "--json", input, "out.png"}), 2, "--json"));
  EXPECT_TRUE(endsWithSentence(effects({"--preview", input, "out.bmp"}), 2, "'out.bmp'"));
  EXPECT_TRUE(endsWithSentence(effects({"--preview", "--time", "9", input, "out.png"}), 2,
                               "behind the end"));
  EXPECT_TRUE(endsWithSentence(effects({"--preview", "missing.mp4", "out.png"}), 1, "missing.mp4"));
  EXPECT_EQ(namesIn(folder_.path()), (std::set<std::string>{}));
}

}  // namespace
}  // namespace kestrel::test
