#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

RunResult checked(const Arguments& arguments) {
  return run(joined({kestrelBinary(), "check"}, arguments));
}

std::string path(const char* name) { return fixture(name).string(); }

TEST(CheckVerb, TellsWhatIsThereAndEndsWithAStatus) {
  const RunResult clean = checked({path("moving25.mp4")});
  EXPECT_EQ(clean.status, 0) << clean.err;
  EXPECT_THAT(clean.out, testing::EndsWith("moving25.mp4: 0:04, 100 pictures: nothing found\n"));
  const RunResult wrong = checked({path("marked-interlaced.mkv")});
  EXPECT_EQ(wrong.status, 3) << wrong.err;
  EXPECT_THAT(wrong.out, testing::HasSubstr("!      0:00 to      0:02  interlacing #0: marked"));
}

TEST(CheckVerb, PrintsADocument) {
  const auto document =
      nlohmann::json::parse(checked({"--json", path("marked-interlaced.mkv")}).out);
  EXPECT_EQ(document["is_whole"], false);
  EXPECT_EQ(document["pictures"], 50);
  EXPECT_EQ(document["findings"][0]["kind"], "interlacing");
  EXPECT_EQ(document["findings"][0]["is_fault"], true);
  EXPECT_EQ(document["findings"][0]["end"], 2);
  const RunResult many = checked({"--json", path("moving25.mp4"), "none.mp4"});
  EXPECT_EQ(many.status, 1);
  const auto documents = nlohmann::json::parse(many.out);
  EXPECT_EQ(documents.size(), 2U);
  EXPECT_TRUE(documents[1].contains("error"));
}

TEST(CheckVerb, WrongUsageIsToldInOneSentence) {
  EXPECT_TRUE(endsWithSentence(checked({"--black", "0", path("moving25.mp4")}), 2, "--black"));
}

}  // namespace
}  // namespace kestrel::test
