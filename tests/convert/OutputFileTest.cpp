#include <kestrel/convert/OutputFile.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

#include <kestrel/convert/Failure.h>
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class OutputFileTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  Names names() const { return namesIn(folder_.path()); }

  /// The message of the failure that making an output file ends in; "" when there is none.
  std::string refusal(const std::string& target, bool force, const std::string& input = {}) const {
    try {
      const OutputFile file(target, force, input);
      return "";
    } catch (const Failure& failure) {
      EXPECT_NE(failure.kind(), Failure::Kind::kSettings);
      return std::string(failure.what());
    }
  }

  const TempDir folder_;
};

TEST_F(OutputFileTest, PartialFileLiesBesideTheTargetAndTellsWhatItIs) {
  const OutputFile file(path("movie.mp4"), false);
  const fs::path partial = file.path();
  EXPECT_EQ(partial.parent_path(), fs::canonical(folder_.path()));
  EXPECT_TRUE(partial.filename().string().starts_with(".movie.partial-"));
  EXPECT_EQ(partial.extension(), ".mp4");
}

TEST_F(OutputFileTest, CommitPutsItInTheTargetsPlace) {
  OutputFile file(path("movie.mp4"), false);
  writeBytes(file.path(), "new");
  file.commit();
  EXPECT_EQ(readBytes(path("movie.mp4")), "new");
  EXPECT_EQ(names(), Names{"movie.mp4"});
}

TEST_F(OutputFileTest, WithoutACommitNothingStays) {
  {
    const OutputFile file(path("movie.mp4"), false);
    writeBytes(file.path(), "half");
  }
  EXPECT_EQ(names(), Names{});
}

TEST_F(OutputFileTest, ACommitOfNothingIsAFailure) {
  OutputFile file(path("movie.mp4"), false);
  EXPECT_THROW(file.commit(), Failure);
  EXPECT_EQ(names(), Names{});
}

TEST_F(OutputFileTest, TheOldTargetStaysUntilTheCommit) {
  writeBytes(path("movie.mp4"), "old");
  OutputFile file(path("movie.mp4"), true);
  writeBytes(file.path(), "new");
  EXPECT_EQ(readBytes(path("movie.mp4")), "old");
  file.commit();
  EXPECT_EQ(readBytes(path("movie.mp4")), "new");
}

TEST_F(OutputFileTest, AReplacedTargetKeepsItsPermissions) {
  writeBytes(path("movie.mp4"), "old");
  fs::permissions(path("movie.mp4"), fs::perms::owner_read | fs::perms::owner_write);
  OutputFile file(path("movie.mp4"), true);
  writeBytes(file.path(), "new");
  file.commit();
  EXPECT_EQ(fs::status(path("movie.mp4")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(OutputFileTest, ALinkStaysALink) {
  writeBytes(path("real.mp4"), "old");
  fs::create_symlink("real.mp4", path("link.mp4"));
  OutputFile file(path("link.mp4"), true);
  writeBytes(file.path(), "new");
  file.commit();
  EXPECT_TRUE(fs::is_symlink(path("link.mp4")));
  EXPECT_EQ(readBytes(path("real.mp4")), "new");
}

TEST_F(OutputFileTest, AnExistingTargetNeedsForce) {
  writeBytes(path("movie.mp4"), "old");
  EXPECT_EQ(refusal(path("movie.mp4"), false), "'" + path("movie.mp4") + "' exists");
  EXPECT_EQ(refusal(path("movie.mp4"), true), "");
}

TEST_F(OutputFileTest, ATargetThatAppearsMeanwhileIsNotReplaced) {
  OutputFile file(path("movie.mp4"), false);
  writeBytes(path("movie.mp4"), "somebody else's");
  EXPECT_THROW(file.commit(), Failure);
  EXPECT_EQ(readBytes(path("movie.mp4")), "somebody else's");
}

TEST_F(OutputFileTest, TheInputIsNeverTheTarget) {
  writeBytes(path("movie.mp4"), "input");
  fs::create_hard_link(path("movie.mp4"), path("same.mp4"));
  for (const char* name : {"movie.mp4", "same.mp4"}) {
    EXPECT_EQ(refusal(path(name), true, path("movie.mp4")),
              "'" + path(name) + "' is the input itself; choose another output");
  }
}

TEST_F(OutputFileTest, AFolderIsNoTarget) {
  fs::create_directory(path("folder.mp4"));
  EXPECT_EQ(refusal(path("folder.mp4"), true),
            "cannot write '" + path("folder.mp4") + "': Is a directory");
}

TEST_F(OutputFileTest, TheTargetsFolderMustBeThere) {
  EXPECT_EQ(refusal(path("missing/movie.mp4"), false),
            "cannot write '" + path("missing/movie.mp4") + "': No such file or directory");
  writeBytes(path("file"), "");
  EXPECT_EQ(refusal(path("file/movie.mp4"), false),
            "cannot write '" + path("file/movie.mp4") + "': Not a directory");
}

TEST_F(OutputFileTest, ANameThatNoFileCanHaveIsRefusedAtOnce) {
  const std::string name = path(std::string(300, 'x') + ".mp4");
  EXPECT_EQ(refusal(name, false), "cannot write '" + name + "': File name too long");
}

TEST_F(OutputFileTest, TheLongestNameHasAPartialFileToo) {
  const std::string name = std::string(251, 'x') + ".mp4";
  OutputFile file(path(name), false);
  writeBytes(file.path(), "new");
  file.commit();
  EXPECT_EQ(names(), Names{name});
}

TEST_F(OutputFileTest, TwoAtOnceDoNotMeet) {
  writeBytes(path("movie.mp4"), "old");
  const OutputFile one(path("movie.mp4"), true);
  const OutputFile other(path("movie.mp4"), true);
  EXPECT_NE(one.path(), other.path());
}

TEST_F(OutputFileTest, NoNameIsTakenForAProtocol) {
  const auto before = fs::current_path();
  fs::current_path(folder_.path());
  {
    OutputFile file("10:30.mp4", false);
    EXPECT_TRUE(file.path().starts_with("./"));
    writeBytes(file.path(), "new");
    file.commit();
  }
  fs::current_path(before);
  EXPECT_EQ(names(), Names{"10:30.mp4"});
}

TEST_F(OutputFileTest, DevicesAndPipesAreWrittenDirectly) {
  ASSERT_EQ(mkfifo(path("pipe.ts").c_str(), 0600), 0);
  OutputFile pipe(path("pipe.ts"), false);
  EXPECT_EQ(pipe.path(), fs::canonical(path("pipe.ts")));
  pipe.commit();
  EXPECT_TRUE(fs::is_fifo(path("pipe.ts")));
  EXPECT_EQ(OutputFile("/dev/null", false).path(), "/dev/null");
  EXPECT_EQ(names(), Names{"pipe.ts"});
}

}  // namespace
}  // namespace kestrel::test
