#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class ProtocolsOfVerbs : public testing::Test {
 protected:
  RunResult kestrel(const Arguments& arguments) const {
    return run(joined({kestrelBinary()}, arguments),
               {.workingDirectory = folder_.path(), .environment = {"SDL_AUDIODRIVER=dummy"}});
  }

  std::string out(const std::string& name) const { return (folder_ / name).string(); }

  const TempDir folder_;
  const std::string clip_ = fixture("av25.ts").string();
  const std::string both_ = "concat:" + clip_ + "|" + clip_;
};

/// What reads an input, in every way there is.
TEST_F(ProtocolsOfVerbs, AreAllowedByName) {
  const std::vector<Arguments> commands{
      {"info", both_},
      {"convert", both_, out("a.mkv"), "--video-codec", "copy", "--audio-codec", "copy"},
      {"thumb", both_, out("a.png")},
      {"thumb", both_, out("sheet.png"), "--sheet", "2x2"},
      {"thumb", both_, out("sprites.png"), "--sprites"},
      {"effects", "--preview", both_, out("effects.png")},
      {"wave", both_, out("a.json")},
      {"join", both_, clip_, "-o", out("joined.ts")},
      {"compose", "-o", out("composed.mkv"), both_},
      {"play", both_, "--rate", "4", "--no-input"},
  };
  for (const Arguments& command : commands) {
    const RunResult refused = kestrel(command);
    EXPECT_EQ(refused.status, 2) << command[0];
    EXPECT_THAT(refused.err, HasSubstr("the protocol 'concat' is not allowed; "
                                       "--allow-protocol allows one"))
        << command[0];
    const RunResult allowed = kestrel(joined(command, {"--allow-protocol", "https,concat"}));
    EXPECT_EQ(allowed.status, 0) << command[0] << ": " << allowed.err;
  }
}

TEST_F(ProtocolsOfVerbs, AreAllowedForManyFilesToo) {
  const Arguments many{"convert", "--into",        out("many"), "--ext",         "mkv",
                       both_,     "--video-codec", "copy",      "--audio-codec", "copy"};
  const RunResult refused = kestrel(many);
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.out + refused.err, HasSubstr("the protocol 'concat' is not allowed"));
  EXPECT_EQ(kestrel(joined(many, {"--allow-protocol", "concat"})).status, 0);
}

TEST_F(ProtocolsOfVerbs, AreNamesThatAreKnown) {
  for (const Arguments& command :
       {Arguments{"info", clip_}, Arguments{"convert", clip_, out("a.mkv")}}) {
    const RunResult result = kestrel(joined(command, {"--allow-protocol", "htps"}));
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("allow-protocol: there is no protocol 'htps'; did you mean"));
  }
}

TEST_F(ProtocolsOfVerbs, AFileWithAColonIsAFile) {
  fs::copy_file(clip_, folder_ / "10:30.ts");
  EXPECT_EQ(kestrel({"info", "10:30.ts"}).status, 0);
  EXPECT_EQ(kestrel({"convert", "10:30.ts", "11:30.mp4"}).status, 0);
  EXPECT_EQ(kestrel({"info", "11:30.mp4"}).status, 0);
  const RunResult missing = kestrel({"info", "12:30.ts"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("No such file or directory"));
}

/// A stored composition is a file from anywhere: what it names is no more allowed than what is
/// typed.
TEST_F(ProtocolsOfVerbs, StoredCompositionsNeedThemToo) {
  ASSERT_EQ(
      kestrel({"compose", "--save", out("a.plist"), both_, "--allow-protocol", "concat"}).status,
      0);
  EXPECT_EQ(kestrel({"compose", "--load", out("a.plist"), "-o", out("b.mkv")}).status, 2);
  EXPECT_EQ(kestrel({"compose", "--load", out("a.plist"), "-o", out("b.mkv"), "--allow-protocol",
                     "concat"})
                .status,
            0);
}

}  // namespace
}  // namespace kestrel::test
