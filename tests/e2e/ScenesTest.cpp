#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

const std::string& movie() {
  static const std::string path = fixture("black-then-bars.mp4").string();
  return path;
}

RunResult scenes(const Arguments& options) {
  return run(joined({kestrelBinary(), "scenes", movie()}, options));
}

TEST(ScenesVerb, ListsThemInSeveralForms) {
  const auto document = nlohmann::json::parse(scenes({"--json"}).out);
  ASSERT_EQ(document["scenes"].size(), 2U);
  EXPECT_EQ(document["scenes"][0]["start"], 0);
  EXPECT_EQ(document["scenes"][0]["end"], document["scenes"][1]["start"]);
  const RunResult chapters = scenes({"--chapters"});
  EXPECT_TRUE(chapters.out.starts_with("CHAPTER01=00:00:00.000\nCHAPTER01NAME=Scene 1\n"));
  EXPECT_THAT(chapters.out, testing::HasSubstr("CHAPTER02=00:00:"));
  EXPECT_THAT(scenes({}).out, testing::HasSubstr("0:00"));
}

TEST(ScenesVerb, DrawsThemAndReplacesNothingUnasked) {
  const TempDir folder;
  const std::string sheet = (folder / "sheet.jpg").string();
  EXPECT_EQ(scenes({"--sheet", sheet}).status, 0);
  EXPECT_TRUE(readBytes(sheet).starts_with("\xff\xd8"));
  EXPECT_TRUE(endsWithSentence(scenes({"--sheet", sheet}), 1, "--force"));
  EXPECT_EQ(scenes({"--sheet", sheet, "--force"}).status, 0);
}

TEST(ScenesVerb, WrongUsageIsToldInOneSentence) {
  EXPECT_TRUE(endsWithSentence(scenes({"--json", "--chapters"}), 2, "exclude each other"));
  EXPECT_TRUE(endsWithSentence(scenes({"--sheet", "sheet.txt"}), 2, "sheet.txt"));
}

}  // namespace
}  // namespace kestrel::test
