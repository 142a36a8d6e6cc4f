#include <gtest/gtest.h>
#include <kestrel/convert/Disc.h>

#include <filesystem>
#include <initializer_list>
#include <string>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// A disc of two title sets: titles 1 to 3 lie in the first, title 4 in the second.
class DiscDamage : public testing::Test {
 protected:
  DiscDamage() { fs::copy(discFixture("pal") / "disc", disc(), fs::copy_options::recursive); }

  fs::path disc() const { return folder_ / "disc"; }

  /// Cuts a file's information and its backup to so many bytes.
  void cut(const std::string& stem, uintmax_t size) const {
    for (const char* extension : {".IFO", ".BUP"})
      fs::resize_file(disc() / "VIDEO_TS" / (stem + extension), size);
  }

  std::string damage() const { return damageOf(*openDisc(disc().string())); }

 private:
  const TempDir folder_;
};

TEST_F(DiscDamage, OfAWholeDiscIsNothing) { EXPECT_EQ(damage(), ""); }

TEST_F(DiscDamage, NamesTheTitleSetAndItsTitles) {
  cut("VTS_01_0", 3000);
  EXPECT_EQ(damage(), "title set 1 cannot be read (titles 1 to 3)");
}

TEST_F(DiscDamage, NamesASingleTitle) {
  cut("VTS_02_0", 3000);
  EXPECT_EQ(damage(), "title set 2 cannot be read (title 4)");
}

TEST_F(DiscDamage, ABackupIsEnough) {
  fs::resize_file(disc() / "VIDEO_TS/VTS_01_0.IFO", 3000);
  EXPECT_EQ(damage(), "");
}

TEST_F(DiscDamage, TellsOfALostTableOfTitles) {
  cut("VIDEO_TS", 2048);
  EXPECT_EQ(damage(), "its table of titles cannot be read, so titles may have other numbers");
}

// Without the table nobody knows which titles the lost set had.
TEST_F(DiscDamage, JoinsTwoFindings) {
  cut("VIDEO_TS", 2048);
  cut("VTS_01_0", 3000);
  EXPECT_EQ(damage(),
            "title set 1 cannot be read; "
            "its table of titles cannot be read, so titles may have other numbers");
}

}  // namespace
}  // namespace kestrel::test
