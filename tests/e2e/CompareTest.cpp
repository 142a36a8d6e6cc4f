#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class CompareVerb : public testing::Test {
 protected:
  CompareVerb() {
    const RunResult made =
        convert(original_, copy_,
                {"--crf", "40", "--audio-codec", "none", "--encoder-preset", "ultrafast"});
    if (made.status != 0) throw std::runtime_error(made.err);
  }

  RunResult compare(const Arguments& options, const std::string& copy) const {
    return run(joined({kestrelBinary(), "compare", original_, copy}, options));
  }

  RunResult compare(const Arguments& options = {}) const { return compare(options, copy_); }

  const TempDir folder_;
  const std::string original_ = fixture("moving25.mp4").string();
  const std::string copy_ = (folder_ / "copy.mp4").string();
};

TEST_F(CompareVerb, TellsPeopleAndPrograms) {
  const RunResult text = compare();
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.err, "");
  for (const char* const part : {"SSIMULACRA 2: 100 pairs", "mean", "5th percentile", "worst:"})
    EXPECT_THAT(text.out, testing::HasSubstr(part));
  const RunResult document = compare({"--json", "--pictures", "--metric", "psnr"});
  EXPECT_EQ(document.status, 0);
  const auto json = nlohmann::json::parse(document.out);
  EXPECT_EQ(json["metric"], "psnr");
  EXPECT_EQ(json["pairs"], 100);
  EXPECT_EQ(json["pictures"].size(), 100U);
  EXPECT_EQ(json["pictures"][1]["time"], 0.04);
  EXPECT_LE(json["least"], json["percentile_5"]);
  EXPECT_EQ(json["components"].size(), 4U);
  EXPECT_EQ(nlohmann::json::parse(
                compare({"--json", "--metric", "psnr", "--every", "50"}, original_).out)["mean"],
            "inf");
}

TEST_F(CompareVerb, AnswersScriptsByItsStatus) {
  EXPECT_EQ(compare({"--at-least", "99.9"}, original_).status, 0);
  EXPECT_EQ(compare({"--at-least", "99.9", "--every", "20"}).status, 4);
}

TEST_F(CompareVerb, WrongUsageIsToldInOneSentence) {
  EXPECT_TRUE(endsWithSentence(compare({"--metric", "ssim2"}), 2, "did you mean"));
  EXPECT_TRUE(endsWithSentence(compare({"--every", "0"}), 2, "--every"));
  EXPECT_TRUE(endsWithSentence(compare({"--pictures"}), 2, "--pictures does nothing"));
  EXPECT_TRUE(endsWithSentence(compare({"--plot", "plot.txt"}), 2, "plot.txt"));
  EXPECT_TRUE(endsWithSentence(compare({}, (folder_ / "none.mp4").string()), 1, "none.mp4"));
  EXPECT_TRUE(endsWithSentence(compare({"--plot", copy_ + ".svg", "--worst", copy_}), 2, "copy"));
  EXPECT_THAT(namesIn(folder_.path()), testing::ElementsAre("copy.mp4"));
}

}  // namespace
}  // namespace kestrel::test
