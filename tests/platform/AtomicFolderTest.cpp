#include "platform/files/AtomicFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class AtomicFolderTest : public testing::Test {
 protected:
  std::string target() const { return (place_ / "a.folder").string(); }

  static void put(const fs::path& folder, const std::string& name) {
    fs::create_directories(folder);
    std::ofstream(folder / name) << name;
  }

  const TempDir place_;
};

TEST_F(AtomicFolderTest, AppearsWholeWhenItIsPlaced) {
  AtomicFolder folder(target());
  ASSERT_FALSE(folder.error());
  put(folder.path(), "new");
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_FALSE(folder.place(false));
  EXPECT_EQ(namesIn(target()), Names{"new"});
  EXPECT_EQ(namesIn(place_.path()), Names{"a.folder"});
}

TEST_F(AtomicFolderTest, WithoutThatNothingIsLeft) {
  {
    const AtomicFolder folder(target());
    put(folder.path(), "new");
  }
  EXPECT_EQ(namesIn(place_.path()), Names{});
}

TEST_F(AtomicFolderTest, ReplacesAnOldOneOnlyWhereItMay) {
  put(target(), "old");
  {
    AtomicFolder folder(target());
    put(folder.path(), "new");
    EXPECT_EQ(folder.place(false).code, -EEXIST);
  }
  EXPECT_EQ(namesIn(target()), Names{"old"});
  {
    AtomicFolder folder(target());
    put(folder.path(), "new");
    EXPECT_FALSE(folder.place(true));
    EXPECT_EQ(namesIn(target()), Names{"new"});
  }
  EXPECT_EQ(namesIn(place_.path()), Names{"a.folder"});
}

TEST_F(AtomicFolderTest, IsTakenBack) {
  for (const bool hasOld : {false, true}) {
    if (hasOld) put(target(), "old");
    {
      AtomicFolder folder(target());
      put(folder.path(), "new");
      EXPECT_FALSE(folder.place(true));
      folder.undo();
    }
    EXPECT_EQ(namesIn(place_.path()), hasOld ? Names{"a.folder"} : Names{});
  }
  EXPECT_EQ(namesIn(target()), Names{"old"});
}

TEST_F(AtomicFolderTest, NeedsAPlace) {
  EXPECT_EQ(AtomicFolder((place_ / "nowhere" / "a").string()).error().code, -ENOENT);
}

}  // namespace
}  // namespace kestrel::test
