#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// A program of examples/, which is built into a folder of that name beside the tests'.
std::string example(const std::string& name) {
  const auto build = std::filesystem::path(kestrelBinary()).parent_path().parent_path();
  return (build / "examples" / ("example_" + name)).string();
}

/// A program of a host's and the command line make the same file, byte for byte.
TEST(Examples, ConvertDoesWhatTheCommandLineDoes) {
  const TempDir folder;
  const auto own = folder.path() / "own.mp4";
  const auto other = folder.path() / "other.mp4";
  const std::string subtitles = fixture("subtitles.srt").string();
  const auto clip = fixture("av25.mp4");
  const RunResult result = run({example("convert"), clip.string(), own.string(), subtitles});
  ASSERT_EQ(result.status, 0) << result.err;
  ASSERT_TRUE(converts(clip, other, {"--crop", "0,60,320x120", "--subtitles", subtitles}));
  EXPECT_EQ(readBytes(own), readBytes(other));
}

TEST(Examples, AFailureIsASentence) {
  const TempDir folder;
  const std::string absent = folder.path() / "none.mp4";
  const std::string output = folder.path() / "out.png";
  for (const char* name : {"convert", "thumbnail", "play"}) {
    const RunResult result = run({example(name), absent, output, ""});
    EXPECT_EQ(result.status, 1) << name;
    EXPECT_EQ(result.err, "cannot open '" + absent + "': No such file or directory\n") << name;
  }
}

TEST(Examples, ThumbnailIsWhatTheCommandLineDraws) {
  const TempDir folder;
  const auto own = folder.path() / "own.png";
  const auto other = folder.path() / "other.png";
  const std::string clip = fixture("numbered25-long.mp4").string();
  ASSERT_EQ(run({example("thumbnail"), clip, own.string()}).status, 0);
  ASSERT_EQ(run({kestrelBinary(), "thumb", clip, other.string(), "--time", "2.5"}).status, 0);
  EXPECT_EQ(readBytes(own), readBytes(other));
}

TEST(Examples, PlayEndsWithItsInput) {
  const RunResult result = run({example("play"), fixture("pcm-stereo-44100-f32.wav").string()},
                               {.environment = {"SDL_AUDIODRIVER=dummy"}});
  EXPECT_EQ(result.status, 0) << result.err;
}

/// A pipe states no length: the end of what comes through it is the end.
TEST(Examples, PlayEndsWithAPipe) {
  const std::string clip = fixture("pcm-stereo-44100-f32.wav").string();
  const RunResult result =
      run({"sh", "-c", "cat '" + clip + "' | '" + example("play") + "' pipe:0"},
          {.environment = {"SDL_AUDIODRIVER=dummy"}});
  EXPECT_EQ(result.status, 0) << result.err;
}

}  // namespace
}  // namespace kestrel::test
