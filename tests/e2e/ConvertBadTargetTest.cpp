#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <sstream>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

using Names = std::set<std::string>;

class ConvertBadTarget : public testing::Test {
 protected:
  const std::filesystem::path source_ = fixture("numbered25.mp4");
  TempDir folder_;
};

TEST_F(ConvertBadTarget, InAFolderThatIsNotThere) {
  const auto output = folder_ / "missing/out.mp4";
  EXPECT_TRUE(endsWithSentence(convert(source_, output), kFailed, output.string()));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

TEST_F(ConvertBadTarget, InAFolderThatIsAFile) {
  writeBytes(folder_ / "file", "x");
  const auto output = folder_ / "file/out.mp4";
  EXPECT_TRUE(endsWithSentence(convert(source_, output), kFailed, output.string()));
  EXPECT_EQ(namesIn(folder_.path()), Names{"file"});
}

TEST_F(ConvertBadTarget, InAFolderThatMayNotBeWrittenTo) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes everywhere";
  std::filesystem::permissions(
      folder_.path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  const auto output = folder_ / "out.mp4";
  EXPECT_TRUE(endsWithSentence(convert(source_, output), kFailed, output.string()));
  std::filesystem::permissions(folder_.path(), std::filesystem::perms::owner_all);
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

TEST_F(ConvertBadTarget, InAFolderThatTakesNoFiles) {
  EXPECT_TRUE(endsWithSentence(convert(source_, "/proc/out.mp4"), kFailed, "/proc/out.mp4"));
}

TEST_F(ConvertBadTarget, IsAFolder) {
  std::filesystem::create_directory(folder_ / "out.mp4");
  for (const Arguments& options : {Arguments{}, {"--force"}})
    EXPECT_TRUE(endsWithSentence(convert(source_, folder_ / "out.mp4", options), kFailed,
                                 (folder_ / "out.mp4").string()));
  EXPECT_EQ(namesIn(folder_.path()), Names{"out.mp4"});
}

TEST_F(ConvertBadTarget, ExistsAndIsNotReplacedWithoutForce) {
  const auto output = folder_ / "out.mp4";
  writeBytes(output, "precious");
  const auto result = convert(source_, output);
  EXPECT_TRUE(endsWithSentence(result, kFailed, output.string()));
  EXPECT_THAT(result.err, HasSubstr("--force"));
  EXPECT_EQ(readBytes(output), "precious");
  EXPECT_EQ(namesIn(folder_.path()), Names{"out.mp4"});
}

TEST_F(ConvertBadTarget, ExistsAndIsReplacedWithForce) {
  const auto output = folder_ / "out.mp4";
  writeBytes(output, "old");
  ASSERT_TRUE(converts(source_, output, {"--force"}));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
  EXPECT_EQ(namesIn(folder_.path()), Names{"out.mp4"});
}

TEST_F(ConvertBadTarget, IsTheInputItself) {
  const auto source = folder_ / "movie.mp4";
  std::filesystem::copy_file(source_, source);
  std::filesystem::create_symlink(source, folder_ / "link.mp4");
  const std::string before = readBytes(source);
  for (const char* name : {"movie.mp4", "link.mp4"})
    EXPECT_TRUE(endsWithSentence(convert(source, folder_ / name, {"--force"}), kFailed, name));
  EXPECT_EQ(readBytes(source), before);
  EXPECT_EQ(namesIn(folder_.path()), (Names{"link.mp4", "movie.mp4"}));
}

TEST_F(ConvertBadTarget, HasAnUnknownExtension) {
  for (const char* name : {"out.xyz", "out"}) {
    EXPECT_TRUE(endsWithSentence(convert(source_, folder_ / name), kWrongUsage, name));
    EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
  }
}

TEST_F(ConvertBadTarget, AnUnknownCodec) {
  for (const char* option : {"--video-codec", "--audio-codec"}) {
    const auto result = convert(source_, folder_ / "out.mp4", {option, "h9000"});
    EXPECT_TRUE(endsWithSentence(result, kWrongUsage, "h9000"));
    EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
  }
}

TEST_F(ConvertBadTarget, ACodecOfTheOtherKind) {
  EXPECT_TRUE(endsWithSentence(convert(source_, folder_ / "out.mp4", {"--video-codec", "aac"}),
                               kWrongUsage, "aac"));
  EXPECT_TRUE(endsWithSentence(convert(source_, folder_ / "out.mp4", {"--audio-codec", "h264"}),
                               kWrongUsage, "h264"));
}

TEST_F(ConvertBadTarget, ACodecThatTheContainerRefuses) {
  struct Refusal {
    std::string name, option, codec;
  };
  for (const auto& [name, option, codec] : {Refusal{"out.webm", "--video-codec", "h264"},
                                            {"out.mp4", "--audio-codec", "pcm_f32le"},
                                            {"out.mp4", "--video-codec", "wmv2"},
                                            {"out.ts", "--video-codec", "vp9"},
                                            {"out.ts", "--audio-codec", "libvorbis"},
                                            {"out.webm", "--video-codec", "copy"},
                                            {"out.webm", "--audio-codec", "copy"}}) {
    SCOPED_TRACE(name + " " + codec);
    const auto output = folder_ / name;
    EXPECT_TRUE(
        endsWithSentence(convert(source_, output, {option, codec}), kFailed, output.string()));
    EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
  }
}

TEST_F(ConvertBadTarget, AContainerWhoseOnlyCodecCannotBeEncoded) {
  const auto output = folder_ / "out.amr";
  EXPECT_TRUE(
      endsWithSentence(convert(source_, output), kFailed, "there is no encoder for amr_nb"));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

TEST_F(ConvertBadTarget, AnEncoderThatRefusesItsSettings) {
  const auto output = folder_ / "out.mp4";
  const Arguments options{"--video-codec", "h263", "--size", "123x45"};
  EXPECT_TRUE(endsWithSentence(convert(source_, output, options), kFailed, output.string()));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

/// What a shell script prints that runs in a file system of its own with a small disk at `disk`.
RunResult runWithSmallDisk(const std::filesystem::path& disk, const std::string& script) {
  Arguments command{"unshare"};
  if (geteuid() != 0) command = joined(command, {"--user", "--map-root-user"});
  return run(joined(command, {"--mount", "sh", "-c",
                              "mount -t tmpfs -o size=32k tmpfs \"$1\" || exit 77; cd \"$1\"; "
                              "shift; " +
                                  script,
                              "sh", disk.string()}));
}

TEST_F(ConvertBadTarget, OnAFullDisk) {
  if (runWithSmallDisk(folder_.path(), "true").status != 0)
    GTEST_SKIP() << "no file system can be mounted here";
  const std::string command = "'" + kestrelBinary() + "' convert '" + source_.string() + "'";
  // Large pictures with next to no loss: at least 45 kB.
  const std::string options =
      " --video-codec h264 --size 1280x720 --video-option qp=1 --force 2>errors; echo $?; ";
  for (const char* name : {"out.mp4", "out.mkv", "out.ts", "out.avi"}) {
    SCOPED_TRACE(name);
    const RunResult result = runWithSmallDisk(
        folder_.path(), "printf precious >" + std::string(name) + "; " + command + " " + name +
                            options + "cat errors " + name + "; rm errors; echo; ls -A");
    EXPECT_EQ(result.out, "1\nkestrel: cannot write '" + std::string(name) +
                              "': No space left on device\nprecious\n" + name + "\n");
  }
}

TEST_F(ConvertBadTarget, BeyondTheLargestFileSize) {
  const auto output = folder_ / "out.mkv";
  const RunResult result = run(
      joined({"prlimit", "--fsize=40000"},
             convertCommand(source_, output, {"--size", "1280x720", "--video-option", "qp=1"})));
  EXPECT_TRUE(endsWithSentence(result, kFailed, output.string()));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
