#include <gmock/gmock.h>
#include <kestrel/convert/Job.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "convert/job/SlurmQueue.h"
#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;

/// Slurm's programs are scripts of the test's.
class SlurmJobTest : public testing::Test {
 protected:
  SlurmJobTest() {
    settings_.folder = (dir_ / "job").string();
    settings_.input = fixture("cut.mp4").string();
    settings_.output = (dir_ / "out.mkv").string();
    settings_.stretch = 100;
    settings_.options = {{"video-codec", "ffv1"}};
    setenv("PATH", (dir_.path().string() + ":" + path_).c_str(), 1);
  }
  ~SlurmJobTest() override { setenv("PATH", path_.c_str(), 1); }

  void program(const std::string& name, const std::string& script) const {
    writeBytes(dir_ / name, "#!/bin/sh\n" + script + "\n");
    fs::permissions(dir_ / name, fs::perms::owner_all);
  }

  const std::string path_ = std::getenv("PATH");
  const TempDir dir_;
  JobSettings settings_;
  const SlurmSettings slurm_{.program = "kestrel"};
};

TEST_F(SlurmJobTest, AnArrayIsKnownAsSoonAsItIsSubmitted) {
  planJob(settings_);
  program("sbatch", "case \"$*\" in *--array*) echo 4711;; *) echo no luck >&2; exit 1;; esac");
  EXPECT_THAT(failureOf([&] { submitJob(settings_.folder, slurm_); }).what(),
              HasSubstr("'sbatch' failed: no luck"));
  program("scancel", "echo \"$*\" > " + (dir_ / "cancelled").string());
  cancelJob(settings_.folder);
  EXPECT_EQ(readBytes(dir_ / "cancelled"), "4711\n");
}

TEST_F(SlurmJobTest, ATargetThatWasTakenAwayIsMadeAgain) {
  planJob(settings_);
  workJob(settings_.folder);
  assembleJob(settings_.folder);
  writeBytes(dir_ / "job/slurm", "1,2\n");
  fs::remove(settings_.output);
  program("squeue", "exit 0");
  program("sbatch", "echo no luck >&2; exit 1");
  EXPECT_THAT(failureOf([&] { convertOnSlurm(settings_, slurm_); }).what(), HasSubstr("no luck"));
  EXPECT_FALSE(jobStatus(settings_.folder).isAssembled);
}

TEST_F(SlurmJobTest, AQueueThatNeverAnswersEndsTheWaiting) {
  program("squeue", "echo controller is away >&2; exit 1");
  SlurmQueue patient({"1"});
  EXPECT_TRUE(patient.isBusy());
  EXPECT_TRUE(patient.isBusy());
  SlurmQueue queue({"1"}, 0ms);
  EXPECT_TRUE(queue.isBusy());
  EXPECT_THAT(failureOf([&] { queue.isBusy(); }).what(), HasSubstr("controller is away"));
  program("squeue", "echo Invalid job id specified >&2; exit 1");
  EXPECT_FALSE(queue.isBusy());
}

TEST_F(SlurmJobTest, WithoutAProgramNothingIsSubmitted) {
  planJob(settings_);
  EXPECT_EQ(failureOf([&] { submitJob(settings_.folder); }).subject(), "program");
}

}  // namespace
}  // namespace kestrel::test
