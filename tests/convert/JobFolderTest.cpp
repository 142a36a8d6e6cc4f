#include "convert/job/JobFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double kLease = 60;
constexpr const char* kPlan = R"({"format": 1, "id": "1", "parts": []})";

class JobFolderTest : public testing::Test {
 protected:
  JobFolderTest() { folder_.begin(); }

  fs::path claimPath() const { return dir_ / "claims/0001"; }

  /// Has the claim last renewed so many seconds ago.
  void age(int seconds) const {
    const std::array<timespec, 2> times{timespec{time(nullptr) - seconds, 0},
                                        timespec{time(nullptr) - seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, claimPath().c_str(), times.data(), 0), 0);
  }

  /// As of a machine that cannot be asked.
  void moveElsewhere() const {
    std::string text = readBytes(claimPath());
    text.replace(text.find("\"host\":\"") + 8, 1, "#");
    writeBytes(claimPath(), text);
  }

  const TempDir dir_;
  JobFolder folder_{dir_.path().string()};
};

TEST_F(JobFolderTest, OneOfManyGetsAClaim) {
  for (int round = 0; round < 20; ++round) {
    std::atomic<int> claims = 0;
    {
      std::vector<std::jthread> workers;
      for (int i = 0; i < 8; ++i)
        workers.emplace_back([&] { claims += folder_.claim("0001", "w", kLease).has_value(); });
    }
    EXPECT_EQ(claims, 1);
    folder_.release("0001", *folder_.claimOf("0001"));
  }
  EXPECT_THAT(namesIn(dir_ / "partial"), IsEmpty());
  EXPECT_THAT(namesIn(dir_ / "claims"), IsEmpty());
}

TEST_F(JobFolderTest, AClaimHoldsAsLongAsItIsRenewed) {
  const auto own = folder_.claim("0001", "first", kLease);
  ASSERT_TRUE(own);
  moveElsewhere();
  age(59);
  EXPECT_FALSE(folder_.claim("0001", "second", kLease));
  age(61);
  folder_.renew("0001", *own);
  EXPECT_FALSE(folder_.claim("0001", "second", kLease));
  age(61);
  const auto other = folder_.claim("0001", "second", kLease);
  ASSERT_TRUE(other);
  EXPECT_EQ(folder_.claimOf("0001")->worker, "second");
  // Whoever has lost it lets go of nothing.
  folder_.release("0001", *own);
  EXPECT_EQ(folder_.claimOf("0001")->token, other->token);
}

TEST_F(JobFolderTest, AClaimGoesWithItsProcess) {
  const pid_t child = fork();
  if (child == 0) _exit(folder_.claim("0001", "child", kLease) ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  ASSERT_TRUE(folder_.claimOf("0001"));
  EXPECT_TRUE(folder_.claim("0001", "second", kLease));
}

TEST_F(JobFolderTest, APartIsPoisonAfterThreeFaults) {
  for (int i = 0; i < 2; ++i) folder_.addProblem("0001", {"it does not work"});
  for (int i = 0; i < 5; ++i) folder_.addProblem("0001", {"ended", true});
  EXPECT_FALSE(folder_.isPoison("0001"));
  folder_.addProblem("0001", {"nor now"});
  EXPECT_TRUE(folder_.isPoison("0001"));
  EXPECT_FALSE(folder_.isPoison("0002"));
  EXPECT_THAT(folder_.problemsOf("0001"), SizeIs(8));
}

TEST_F(JobFolderTest, AFileIsWrittenOnce) {
  folder_.writeOnce("plan.json", "one");
  EXPECT_EQ(failureOf([&] { folder_.writeOnce("plan.json", "two"); }).kind(),
            Failure::Kind::kExists);
  EXPECT_EQ(readBytes(dir_ / "plan.json"), "one");
  EXPECT_THAT(namesIn(dir_ / "partial"), IsEmpty());
}

TEST_F(JobFolderTest, TheWholeIsKnownByItself) {
  writeBytes(dir_ / "a.partial", "movie");
  folder_.noteWhole((dir_ / "a.partial").string());
  writeBytes(dir_ / "a.mp4", "movie");
  EXPECT_FALSE(folder_.isWhole((dir_ / "a.mp4").string()));
  fs::rename(dir_ / "a.partial", dir_ / "a.mp4");
  EXPECT_TRUE(folder_.isWhole((dir_ / "a.mp4").string()));
}

TEST_F(JobFolderTest, NothingButJobsIsRemoved) {
  const TempDir other;
  writeBytes(other / "mine.txt", "x");
  JobFolder(other.path().string()).remove();
  EXPECT_TRUE(fs::exists(other / "mine.txt"));
  JobFolder((other / "mine.txt").string()).remove();
  EXPECT_TRUE(fs::exists(other / "mine.txt"));
  folder_.writeOnce("plan.json", kPlan);
  writeBytes(dir_ / "parts/0001.packets", "x");
  writeBytes(dir_ / "work-3.log", "x");
  folder_.remove();
  EXPECT_FALSE(fs::exists(dir_.path()));
}

TEST_F(JobFolderTest, AFolderWithAnythingElseIsRefusedAndKept) {
  for (const char* name :
       {"parts/mine.mov", "whole/mine.mov", "partial/mine.mov", "whole", "plan.json", "mine.txt"}) {
    const TempDir other;
    fs::create_directories((other / name).parent_path());
    writeBytes(other / name, "{}");
    const JobFolder folder(other.path().string());
    EXPECT_THAT(failureOf([&] { folder.begin(); }).what(),
                testing::EndsWith("is not empty and holds no job"))
        << name;
    folder.remove();
    EXPECT_EQ(readBytes(other / name), "{}");
    EXPECT_THAT(namesIn(other.path()), SizeIs(1)) << "nothing was made beside " << name;
  }
}

TEST_F(JobFolderTest, WhatWasPutIntoAJobStays) {
  folder_.writeOnce("plan.json", kPlan);
  writeBytes(dir_ / "mine.log", "x");
  fs::create_directories(dir_ / "parts/mine");
  writeBytes(dir_ / "parts/mine/mine.mov", "x");
  folder_.remove();
  EXPECT_THAT(namesIn(dir_.path()), testing::UnorderedElementsAre("mine.log", "parts"));
  EXPECT_TRUE(fs::exists(dir_ / "parts/mine/mine.mov"));
}

TEST_F(JobFolderTest, WhatAnEndedRemovalHasLeftIsTakenOver) {
  writeBytes(dir_ / "partial/4711-0-00c0ffee", "{");  // a plan that never got its name
  writeBytes(dir_ / "a.partial", "movie");
  folder_.noteWhole((dir_ / "a.partial").string());
  fs::remove(dir_ / "a.partial");
  folder_.begin();
  EXPECT_FALSE(fs::exists(dir_ / "whole"));
  folder_.remove();
  EXPECT_FALSE(fs::exists(dir_.path()));
}

TEST_F(JobFolderTest, AProblemThatCannotBeWrittenIsRemembered) {
  fs::remove(dir_ / "problems");
  writeBytes(dir_ / "problems", "no folder");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(folder_.addProblem("0001", {"it does not work"}));
  EXPECT_TRUE(folder_.isPoison("0001"));
  EXPECT_THAT(folder_.problemsOf("0001"), SizeIs(3));
}

}  // namespace
}  // namespace kestrel::test
