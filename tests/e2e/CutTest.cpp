#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

class CutVerb : public testing::Test {
 protected:
  RunResult cut(const Arguments& options) {
    return run(joined(
        {kestrelBinary(), "cut", fixture("cut.mp4").string(), (folder_ / "out.mp4").string()},
        options));
  }

  TempDir folder_;
};

TEST_F(CutVerb, TellsWhatWasCopiedAndWhatEncoded) {
  const RunResult result = cut({"--keep", "0.9-4.2", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document["stretches"][0]["action"], "encoded");
  EXPECT_EQ(document["stretches"][0]["start"], 0.92);
  EXPECT_EQ(document["stretches"][0]["packets"], 7);
  EXPECT_GE(document["stretches"][0]["ssim"], 0.98);
  EXPECT_EQ(document["stretches"][1]["action"], "copied");
  EXPECT_GE(document["proof"]["seams"], 1);
  EXPECT_TRUE(document["leftOut"].empty());
}

TEST_F(CutVerb, SpansMayLackASide) {
  const RunResult result = cut({"--keep", "-1.2,4.8-"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("copied 30 pictures"));
  EXPECT_THAT(result.out, HasSubstr("proven at 1 seam: "));
}

TEST_F(CutVerb, RefusesWhatIsNoSpan) {
  for (const Arguments& wrong : {Arguments{"--keep", "3"}, Arguments{"--keep", "3-1"}, Arguments{},
                                 Arguments{"--keep", "0-1", "--drop", "2-3"},
                                 Arguments{"--keep", "0-1", "--accuracy", "near"}}) {
    const RunResult result = cut(wrong);
    EXPECT_EQ(result.status, 2) << result.err;
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

}  // namespace
}  // namespace kestrel::test
