#include <gmock/gmock.h>

#include <csignal>
#include <random>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// Files that demuxers take for sound by their names, while no packet of them can be decoded. What
/// does not see their end goes on for ever: these runs are killed, and their status is another.
class HostileSound : public testing::Test {
 protected:
  std::filesystem::path input(const std::string& name, const std::string& bytes) {
    const auto file = folder_ / name;
    writeBytes(file, bytes);
    return file;
  }

  static std::string noise(unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(100000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
  }

  static RunResult kestrel(const Arguments& arguments) {
    return run(joined({kestrelBinary()}, arguments),
               {.environment = {"SDL_AUDIODRIVER=dummy"}, .timeLimit = std::chrono::seconds(60)});
  }

  std::string result() const { return (folder_ / "out.m4a").string(); }

  void expectRefused(const std::filesystem::path& input) {
    const std::string path = input.string();
    EXPECT_TRUE(endsWithSentence(kestrel({"convert", path, result()}), 1,
                                 "'" + path + "' has no picture and no sound that can be decoded"));
    EXPECT_TRUE(endsWithSentence(kestrel({"play", path, "--no-input"}), 1,
                                 "cannot play '" + path + "': none of its streams can be decoded"));
    const RunResult joined = kestrel({"join", path, path, "-o", result()});
    EXPECT_EQ(joined.status, 1);
    EXPECT_THAT(joined.err,
                HasSubstr("'" + path + "' has no picture and no sound that can be decoded\n"));
    EXPECT_FALSE(std::filesystem::exists(result()));
  }

  TempDir folder_;
};

TEST_F(HostileSound, ZerosAreNoSound) { expectRefused(input("z.mp3", std::string(100000, '\0'))); }

TEST_F(HostileSound, NoiseIsNoSound) {
  for (const char* kind : {"aac", "dts", "flac", "mp3"})
    for (unsigned seed = 1; seed <= 2; ++seed) {
      SCOPED_TRACE(std::string(kind) + ", seed " + std::to_string(seed));
      expectRefused(input("noise." + std::string(kind), noise(seed)));
    }
}

/// Where there is a cover beside it, the sound might still come.
TEST_F(HostileSound, ZerosBehindACoverAreNoSound) {
  const auto song = folder_ / "song.mp3";
  ffmpeg({"-f", "lavfi", "-i", "sine=d=1", "-f", "lavfi", "-i", "testsrc=s=64x64:d=0.04", "-map",
          "0", "-map", "1", "-c:v", "mjpeg", "-disposition:v", "attached_pic", "-write_xing", "0",
          song.string()});
  // The tag in front says its size behind its own first ten bytes, seven bits in each of four
  // bytes.
  std::string bytes = readBytes(song);
  size_t size = 0;
  for (size_t i = 6; i < 10; ++i) size = size << 7 | static_cast<uint8_t>(bytes.at(i));
  bytes.replace(bytes.begin() + 10 + static_cast<std::ptrdiff_t>(size), bytes.end(),
                std::string(100000, '\0'));
  const std::string path = input("zeros.mp3", bytes).string();
  const std::string sentence = "nothing could be decoded from '" + path + "'";
  EXPECT_TRUE(endsWithSentence(kestrel({"convert", path, result()}), 1, sentence));
  const RunResult joined = kestrel({"join", path, path, "-o", result()});
  EXPECT_EQ(joined.status, 1);
  EXPECT_THAT(joined.err, HasSubstr(sentence));
  EXPECT_NE(kestrel({"play", path, "--no-input"}).status, 128 + SIGKILL);
}

TEST_F(HostileSound, IsToldInAJoinWithOther) {
  const std::string good = fixture("pcm-mono-44100-s16.wav").string();
  const std::string zeros = input("z.mp3", std::string(100000, '\0')).string();
  const RunResult joined = kestrel({"join", good, zeros, "-o", result()});
  EXPECT_EQ(joined.status, 3);
  EXPECT_THAT(joined.err, HasSubstr("nothing could be decoded from '" + zeros + "'"));
}

/// In a broadcast whose sound begins long after its pictures nothing tells the rate at first.
TEST_F(HostileSound, IsNotWhatComesLate) {
  const std::string late = (folder_ / "late.ts").string();
  ffmpeg({"-f",         "lavfi",    "-i",   "color=s=320x240:r=25:d=9,noise=alls=100:allf=t",
          "-itsoffset", "7",        "-f",   "lavfi",
          "-i",         "sine=d=2", "-map", "0",
          "-map",       "1",        "-c:v", "mpeg2video",
          "-b:v",       "10M",      "-c:a", "mp2",
          late});
  ASSERT_EQ(ffprobeJson(late, {"-show_streams"})["streams"][1]["sample_rate"], "0");
  EXPECT_TRUE(converts(late, result()));
}

}  // namespace
}  // namespace kestrel::test
