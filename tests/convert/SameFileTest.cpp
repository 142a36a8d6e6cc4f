#include "convert/files/SameFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

class SameFileTest : public testing::Test {
 protected:
  SameFileTest() {
    writeBytes(folder_ / "one", "1");
    writeBytes(folder_ / "other", "1");
    fs::create_directory(folder_ / "inner");
  }

  std::string named(const std::string& name) const { return (folder_ / name).string(); }

  TempDir folder_;
};

TEST_F(SameFileTest, NamesOfOneFileAreTheSameHoweverTheyAreWritten) {
  fs::create_symlink(folder_ / "one", folder_ / "link");
  fs::create_hard_link(folder_ / "one", folder_ / "hard");
  for (const std::string name : {"one", "./one", "inner/../one", "link", "hard"}) {
    EXPECT_TRUE(isSameFile(named("one"), named(name))) << name;
    EXPECT_TRUE(isSameFile(named(name), named("one"))) << name;
  }
  EXPECT_FALSE(isSameFile(named("one"), named("other")));  // with the same bytes
}

TEST_F(SameFileTest, AFileNeedNotBeThere) {
  EXPECT_TRUE(isSameFile(named("absent"), named("inner/../absent")));
  EXPECT_FALSE(isSameFile(named("absent"), named("one")));
  EXPECT_FALSE(isSameFile(named("absent"), named("inner/absent")));
}

TEST_F(SameFileTest, RelativeNamesCountFromTheCurrentFolder) {
  EXPECT_TRUE(isSameFile("absent.mp4", (fs::current_path() / "absent.mp4").string()));
}

TEST_F(SameFileTest, AnInputIsRefusedAsTheTarget) {
  EXPECT_NO_THROW(requireNoInput(named("absent"), {named("one"), named("other")}));
  EXPECT_NO_THROW(requireNoInput(named("one"), {}));
  const std::string target = named("inner/../other");
  const Failure failure = failureOf([&] {
    requireNoInput(target, {named("one"), named("other")});
  });
  EXPECT_EQ(failure.kind(), Failure::Kind::kOutput);
  EXPECT_EQ(failure.subject(), target);
  EXPECT_EQ(failure.what(), "'" + target + "' is an input itself; choose another output");
}

}  // namespace
}  // namespace kestrel::test
