#include "platform/files/ScratchFolder.h"

#include <gtest/gtest.h>
#include <kestrel/AtomicFile.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

TEST(ScratchFolder, NobodyElseMayEnterIt) {
  const ScratchFolder folder;
  ASSERT_FALSE(folder.error());
  struct stat status {};
  ASSERT_EQ(stat(folder.path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST(ScratchFolder, GoesAwayWithAllThatIsInIt) {
  fs::path path;
  {
    const ScratchFolder folder;
    path = folder.path();
    fs::create_directory(path / "sub");
    std::ofstream(path / "sub" / "file") << "x";
    EXPECT_TRUE(fs::exists(path / "sub" / "file"));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(ScratchFolder, TwoAreDifferent) {
  const ScratchFolder one;
  const ScratchFolder other;
  EXPECT_NE(one.path(), other.path());
}

// What a program does that ends at once: no more are made afterwards.
TEST(ScratchFolder, GoesAwayWhereTheProgramEndsAtOnce) {
  EXPECT_EXIT(
      {
        auto* const folder = new ScratchFolder;
        std::ofstream(fs::path(folder->path()) / "file") << "x";
        AtomicFile::removeAll();
        const ScratchFolder late;
        _exit(!fs::exists(folder->path()) && late.error() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kestrel::test
