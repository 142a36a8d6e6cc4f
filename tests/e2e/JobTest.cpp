#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Arguments kOptions{"--video-codec", "libx264", "--encoder-preset", "ultrafast",
                         "--audio-codec", "aac",     "--size",           "96x-"};

class JobCommandTest : public testing::Test {
 protected:
  RunResult job(const Arguments& arguments) const {
    return run(joined({kestrelBinary(), "job"}, arguments), {.workingDirectory = dir_.path()});
  }

  void plan() const {
    const RunResult result = job(
        joined({"plan", input_, "-o", "out.mp4", "--dir", "job", "--stretch", "1.3"}, kOptions));
    ASSERT_EQ(result.status, 0) << result.err;
  }

  nlohmann::json status() const {
    return nlohmann::json::parse(job({"status", "job", "--json"}).out);
  }

  const TempDir dir_;
  const std::string input_ = fixture("cut.mp4").string();
};

TEST_F(JobCommandTest, IsPlannedMadeAndPutTogether) {
  plan();
  EXPECT_EQ(status()["parts"].size(), 6u);
  EXPECT_EQ(status()["parts"][1]["state"], "waiting");
  // What one begins another may go on with.
  EXPECT_EQ(job({"work", "job", "--part", "0002"}).status, 0);
  EXPECT_EQ(status()["parts"][2]["state"], "done");
  EXPECT_TRUE(endsWithSentence(job({"assemble", "job"}), 1, "5 of 6 parts are still to be made"));
  EXPECT_EQ(job({"work", "job", "--jobs", "2"}).status, 0);
  EXPECT_EQ(job({"assemble", "job"}).status, 0);
  EXPECT_EQ(status()["assembled"], true);
  EXPECT_THAT(job({"status", "job"}).out, HasSubstr("6 of 6 parts are done, and put together"));
  const RunResult count = run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                               "packet=pts", "-of", "csv=p=0", (dir_ / "out.mp4").string()});
  EXPECT_EQ(std::ranges::count(count.out, '\n'), 150);
}

TEST_F(JobCommandTest, WrongUsageIsTold) {
  EXPECT_TRUE(endsWithSentence(job({"dance", "job"}), 2, "'dance' is none of plan, work"));
  EXPECT_TRUE(endsWithSentence(job({"plan", input_, "--dir", "job"}), 2, "--output is required"));
  EXPECT_TRUE(endsWithSentence(job({"work", "nowhere"}), 1, "there is no job in 'nowhere'"));
  EXPECT_TRUE(endsWithSentence(job({"plan", "nothing.mp4", "-o", "o.mp4", "--dir", "job"}), 1,
                               "nothing.mp4"));
  EXPECT_TRUE(endsWithSentence(job({"work", "job", "--fps", "10"}), 2, "belong to 'job plan'"));
}

TEST_F(JobCommandTest, AConversionLeavesNothingBehind) {
  const fs::path out = dir_ / "out.mp4";
  const RunResult result = convert(input_, out, joined(kOptions, {"--resume", "--jobs", "2"}));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(namesIn(dir_.path()), ElementsAre("out.mp4"));
  EXPECT_TRUE(endsWithSentence(convert(input_, out, joined(kOptions, {"--resume"})), 1, "exists"));
}

TEST_F(JobCommandTest, AnotherConversionDoesNotTakeUpTheJob) {
  const fs::path out = dir_ / "out.mp4";
  ASSERT_EQ(
      job(joined({"plan", input_, "-o", out.string(), "--dir", ".out.mp4.partial-job"}, kOptions))
          .status,
      0);
  EXPECT_TRUE(endsWithSentence(convert(input_, out, {"--resume"}), 2, "another options"));
  EXPECT_EQ(convert(input_, out, joined(kOptions, {"--resume"})).status, 0);
  EXPECT_THAT(namesIn(dir_.path()), ElementsAre("out.mp4"));
}

// Ended by SIGKILL a dozen times, by the process or all of them, the same file comes of it.
TEST_F(JobCommandTest, NothingIsLostByBeingKilled) {
  const std::string script = fixture("kill_jobs.sh").string();
  const RunResult result = run({"bash", script, kestrelBinary(), input_, "12"});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_THAT(result.out, HasSubstr("all alike"));
}

TEST_F(JobCommandTest, SlurmsNodesMakeTheSameFile) {
  const RunResult result = run({"bash", fixture("slurm.sh").string(), kestrelBinary(), input_});
  if (result.status == 77) GTEST_SKIP() << "no Slurm: " << result.out;
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_THAT(result.out, HasSubstr("all alike"));
}

TEST_F(JobCommandTest, WithoutSlurmThatIsTold) {
  plan();
  const RunResult result = run({kestrelBinary(), "job", "submit", "job"},
                               {.workingDirectory = dir_.path(), .environment = {"PATH=/nowhere"}});
  EXPECT_TRUE(endsWithSentence(result, 1, "there is no Slurm here: 'sbatch' is missing"));
  EXPECT_TRUE(endsWithSentence(job({"follow", "job"}), 2, "was not submitted to Slurm"));
  EXPECT_TRUE(endsWithSentence(job({"cancel", "job"}), 2, "was not submitted to Slurm"));
}

}  // namespace
}  // namespace kestrel::test
