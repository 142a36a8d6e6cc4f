#include <kestrel/AtomicFile.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <span>
#include <string>

#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using Existing = AtomicFile::Existing;
using Names = std::set<std::string>;

std::span<const uint8_t> bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

struct stat statusOf(const fs::path& file) {
  struct stat status {};
  EXPECT_EQ(lstat(file.c_str(), &status), 0);
  return status;
}

unsigned modeOf(const fs::path& file) { return statusOf(file).st_mode & 07777; }

class AtomicFileTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  Names names() const { return namesIn(folder_.path()); }

  const TempDir folder_;
};

TEST_F(AtomicFileTest, PartialFileLiesBesideTheTargetAndTellsWhatItIs) {
  const AtomicFile file(path("movie.mp4"));
  const fs::path partial = file.path();
  EXPECT_EQ(partial.parent_path(), folder_.path());
  EXPECT_TRUE(partial.filename().string().starts_with(".movie.partial-"));
  EXPECT_EQ(partial.extension(), ".mp4");
  EXPECT_FALSE(file.isDirect());
}

TEST_F(AtomicFileTest, CommitPutsItInTheTargetsPlace) {
  AtomicFile file(path("movie.mp4"));
  writeBytes(file.path(), "new");
  EXPECT_FALSE(file.commit());
  EXPECT_EQ(readBytes(path("movie.mp4")), "new");
  EXPECT_EQ(names(), Names{"movie.mp4"});
}

TEST_F(AtomicFileTest, WhatIsAppendedIsThereInOrder) {
  AtomicFile file(path("list"));
  file.write(bytes("one "));
  file.write(bytes(""));
  file.write(bytes("two"));
  EXPECT_FALSE(file.commit());
  EXPECT_EQ(readBytes(path("list")), "one two");
}

TEST_F(AtomicFileTest, NoBytesMakeAnEmptyFile) {
  EXPECT_FALSE(replaceFile(path("empty"), {}));
  EXPECT_EQ(fs::file_size(path("empty")), 0U);
  EXPECT_FALSE(replaceFile(path("empty"), {}));  // over an old one, too
}

TEST_F(AtomicFileTest, WithoutACommitNothingStaysOfIt) {
  writeBytes(path("old"), "old");
  for (const char* name : {"old", "new"}) {
    AtomicFile file(path(name));
    file.write(bytes("half"));
  }
  EXPECT_EQ(names(), Names{"old"});
  EXPECT_EQ(readBytes(path("old")), "old");
}

TEST_F(AtomicFileTest, ACommitOfNothingIsAnError) {
  writeBytes(path("old"), "old");
  for (const char* name : {"old", "new"}) EXPECT_EQ(AtomicFile(path(name)).commit().code, -ENOENT);
  EXPECT_EQ(names(), Names{"old"});
  EXPECT_EQ(readBytes(path("old")), "old");
}

TEST_F(AtomicFileTest, TheOldTargetStaysUntilTheCommit) {
  writeBytes(path("movie.mp4"), "old");
  AtomicFile file(path("movie.mp4"));
  writeBytes(file.path(), "new");
  EXPECT_EQ(readBytes(path("movie.mp4")), "old");
  EXPECT_FALSE(file.commit());
  EXPECT_EQ(readBytes(path("movie.mp4")), "new");
}

TEST_F(AtomicFileTest, ANewFileIsLikeAnyOther) {
  const mode_t mask = umask(0027);
  EXPECT_FALSE(replaceFile(path("file"), bytes("new")));
  umask(mask);
  EXPECT_EQ(modeOf(path("file")), 0640U);
}

TEST_F(AtomicFileTest, AReplacedFileKeepsItsPermissions) {
  for (const unsigned mode : {0600U, 0444U, 0755U, 0666U}) {
    writeBytes(path("file"), "old");
    chmod(path("file").c_str(), mode);
    EXPECT_FALSE(replaceFile(path("file"), bytes("new")));
    EXPECT_EQ(modeOf(path("file")), mode);
    EXPECT_EQ(readBytes(path("file")), "new");
    fs::remove(path("file"));
  }
}

TEST_F(AtomicFileTest, WhatReplacesAPrivateFileIsPrivateFromTheStart) {
  writeBytes(path("file"), "old");
  chmod(path("file").c_str(), 0600);
  AtomicFile file(path("file"));
  writeBytes(file.path(), "new");
  EXPECT_EQ(modeOf(file.path()), 0600U);
}

TEST_F(AtomicFileTest, AReplacedFileKeepsOwnerAndGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "only the administrator may give files away";
  writeBytes(path("file"), "old");
  ASSERT_EQ(chown(path("file").c_str(), 12345, 23456), 0);
  chmod(path("file").c_str(), 04755);  // a change of owner takes the first bit away
  EXPECT_FALSE(replaceFile(path("file"), bytes("new")));
  EXPECT_EQ(statusOf(path("file")).st_uid, 12345U);
  EXPECT_EQ(statusOf(path("file")).st_gid, 23456U);
  EXPECT_EQ(modeOf(path("file")), 04755U);
}

TEST_F(AtomicFileTest, ALinkStaysALink) {
  fs::create_directory(path("elsewhere"));
  writeBytes(path("elsewhere/real"), "old");
  fs::create_symlink("elsewhere/real", path("near"));
  fs::create_symlink(path("near"), path("far"));
  EXPECT_FALSE(replaceFile(path("far"), bytes("new")));
  EXPECT_TRUE(fs::is_symlink(path("far")));
  EXPECT_TRUE(fs::is_symlink(path("near")));
  EXPECT_EQ(readBytes(path("elsewhere/real")), "new");
}

TEST_F(AtomicFileTest, ALinkToAFileThatIsNotThereYetStaysALink) {
  fs::create_directory(path("elsewhere"));
  fs::create_symlink("elsewhere/later", path("link"));
  EXPECT_FALSE(replaceFile(path("link"), bytes("new")));
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(readBytes(path("elsewhere/later")), "new");
}

TEST_F(AtomicFileTest, LinksInACircleAreRefused) {
  fs::create_symlink("two", path("one"));
  fs::create_symlink("one", path("two"));
  EXPECT_EQ(replaceFile(path("one"), bytes("new")).code, -ELOOP);
  EXPECT_EQ(names(), (Names{"one", "two"}));
}

TEST_F(AtomicFileTest, AnOldTargetCanBeKept) {
  writeBytes(path("movie.mp4"), "old");
  EXPECT_EQ(AtomicFile(path("movie.mp4"), Existing::kKeep).error().code, -EEXIST);
  EXPECT_FALSE(AtomicFile(path("movie.mp4"), Existing::kReplace).error());
}

TEST_F(AtomicFileTest, ATargetThatAppearsMeanwhileCanBeKept) {
  AtomicFile file(path("movie.mp4"), Existing::kKeep);
  writeBytes(file.path(), "new");
  writeBytes(path("movie.mp4"), "somebody else's");
  EXPECT_EQ(file.commit().code, -EEXIST);
  EXPECT_EQ(readBytes(path("movie.mp4")), "somebody else's");
  EXPECT_EQ(names(), Names{"movie.mp4"});
}

TEST_F(AtomicFileTest, InASharedFolderNobodyCanTakeThePartialFilesPlace) {
  chmod(folder_.path().c_str(), 01777);
  const AtomicFile shared(path("movie.mp4"));
  EXPECT_TRUE(fs::is_regular_file(shared.path()));
  chmod(folder_.path().c_str(), 0700);
  EXPECT_FALSE(fs::exists(AtomicFile(path("movie.mp4")).path()));
}

TEST_F(AtomicFileTest, WritingFollowsNoLink) {
  writeBytes(path("precious"), "precious");
  AtomicFile file(path("movie.mp4"));
  fs::create_symlink("precious", file.path());
  file.write(bytes("new"));
  EXPECT_EQ(file.commit().code, -ELOOP);
  EXPECT_EQ(readBytes(path("precious")), "precious");
}

TEST_F(AtomicFileTest, AFolderIsNoTarget) {
  fs::create_directory(path("folder.mp4"));
  EXPECT_EQ(AtomicFile(path("folder.mp4")).error().code, -EISDIR);
}

TEST_F(AtomicFileTest, TheTargetsFolderMustBeThere) {
  EXPECT_EQ(AtomicFile(path("missing/movie.mp4")).error().message, "No such file or directory");
  writeBytes(path("file"), "");
  EXPECT_EQ(AtomicFile(path("file/movie.mp4")).error().message, "Not a directory");
  EXPECT_EQ(AtomicFile("").error().code, -ENOENT);
}

TEST_F(AtomicFileTest, ANameThatNoFileCanHaveIsRefusedAtOnce) {
  EXPECT_EQ(AtomicFile(path(std::string(300, 'x') + ".mp4")).error().code, -ENAMETOOLONG);
}

TEST_F(AtomicFileTest, TheLongestNameHasAPartialFileToo) {
  const std::string name = std::string(251, 'x') + ".mp4";
  EXPECT_FALSE(replaceFile(path(name), bytes("new")));
  EXPECT_EQ(names(), Names{name});
}

TEST_F(AtomicFileTest, TwoAtOnceDoNotMeet) {
  const AtomicFile one(path("movie.mp4"));
  const AtomicFile other(path("movie.mp4"));
  EXPECT_NE(one.path(), other.path());
}

TEST_F(AtomicFileTest, NoNameIsTakenForAProtocol) {
  const auto before = fs::current_path();
  fs::current_path(folder_.path());
  {
    AtomicFile file("10:30.mp4");
    EXPECT_TRUE(file.path().starts_with("./"));
    writeBytes(file.path(), "new");
    EXPECT_FALSE(file.commit());
  }
  fs::current_path(before);
  EXPECT_EQ(names(), Names{"10:30.mp4"});
}

TEST_F(AtomicFileTest, DevicesAndPipesAreWrittenDirectly) {
  ASSERT_EQ(mkfifo(path("pipe.ts").c_str(), 0600), 0);
  AtomicFile pipe(path("pipe.ts"), Existing::kKeep);
  EXPECT_EQ(pipe.path(), path("pipe.ts"));
  EXPECT_TRUE(pipe.isDirect());
  const int reader = open(path("pipe.ts").c_str(), O_RDONLY | O_NONBLOCK);
  pipe.write(bytes("new"));
  char got[4] = {};
  EXPECT_EQ(::read(reader, got, 3), 3);
  close(reader);
  EXPECT_STREQ(got, "new");
  EXPECT_FALSE(pipe.commit());
  EXPECT_TRUE(fs::is_fifo(path("pipe.ts")));
  EXPECT_EQ(AtomicFile("/dev/null").path(), "/dev/null");
  EXPECT_EQ(replaceFile("/dev/full", bytes("new")).code, -ENOSPC);
  EXPECT_EQ(names(), Names{"pipe.ts"});
}

TEST_F(AtomicFileTest, AtTheProgramsEndEveryPartialFileGoes) {
  const auto endWithTwo = [&] {
    AtomicFile one(path("one"));
    AtomicFile other(path("other"));
    one.write(bytes("half"));
    writeBytes(other.path(), "half");
    AtomicFile::removeAll();
    const bool isClosed = one.commit() && AtomicFile(path("third")).error();
    _exit(isClosed ? 0 : 1);
  };
  testing::FLAGS_gtest_death_test_style = "fast";
  EXPECT_EXIT(endWithTwo(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(names(), Names{});
}

}  // namespace
}  // namespace kestrel::test
