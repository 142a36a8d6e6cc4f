#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr size_t kPacket = 188;

/// Transport streams of which packets were lost, which their counters tell.
class DamagedBroadcast : public testing::Test {
 protected:
  /// A broadcast with a key picture every second, in a codec whose decoder makes nothing up.
  fs::path whole(const std::string& codec = "libx265") const {
    fs::path file = folder_ / (codec + ".ts");
    ffmpeg({"-i", fixture("av25.mp4").string(), "-vf", "scale=160:-2", "-c:v", codec, "-preset",
            "ultrafast", "-g", "25", "-x265-params", "log-level=none", "-c:a", "mp2",
            file.string()});
    return file;
  }

  /// Without the packet of the stream in which a later picture goes on, in the middle of a group.
  fs::path holed(const fs::path& file) const {
    const std::string bytes = readBytes(file);
    const auto pidAt = [&](size_t at) {
      return (static_cast<unsigned char>(bytes[at + 1]) & 0x1F) << 8 |
             static_cast<unsigned char>(bytes[at + 2]);
    };
    const auto begins = [&](size_t at) { return (bytes[at + 1] & 0x40) != 0; };
    constexpr int kPictures = 0x100;
    int begun = 0;
    for (size_t at = 0; at + kPacket <= bytes.size(); at += kPacket) {
      if (pidAt(at) != kPictures) continue;
      if (begins(at)) ++begun;
      if (begun < 10 || begins(at)) continue;
      writeBytes(folder_ / "holed.ts", bytes.substr(0, at) + bytes.substr(at + kPacket));
      return folder_ / "holed.ts";
    }
    ADD_FAILURE() << "no picture has several packets";
    return file;
  }

  RunResult converted(const fs::path& file, const std::string& codec) const {
    const std::string sound = codec == "copy" ? "copy" : "flac";
    return convert(file, folder_ / "out.mkv",
                   {"--video-codec", codec, "--audio-codec", sound, "--force"});
  }

  TempDir folder_;
};

TEST_F(DamagedBroadcast, IsToldWhateverBecomesOfIt) {
  const fs::path file = whole();
  for (const char* codec : {"copy", "ffv1"}) {
    EXPECT_EQ(converted(file, codec).status, 0) << codec;
    const RunResult result = converted(holed(file), codec);
    EXPECT_EQ(result.status, 3) << codec;
    EXPECT_THAT(result.err, HasSubstr("holed.ts' is damaged: 1 of its packets came incomplete"));
  }
}

TEST_F(DamagedBroadcast, IsToldByJoinsAndCompositionsThatCopyIt) {
  const fs::path file = whole();
  const fs::path damaged = holed(file);
  const std::string output = (folder_ / "out.mkv").string();
  const auto joined = [&](const fs::path& second) {
    return run({kestrelBinary(), "join", file.string(), second.string(), "-o", output, "--reencode",
                "never", "--force"});
  };
  const auto composed = [&](const fs::path& input) {
    return run({kestrelBinary(), "compose", "-o", output, input.string() + ":0",
                input.string() + ":1", "--force"});
  };
  EXPECT_EQ(joined(file).status, 0);
  EXPECT_EQ(composed(file).status, 0);
  for (const RunResult& result : {joined(damaged), composed(damaged)}) {
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_THAT(result.err, HasSubstr("holed.ts' is damaged: 1 of its packets came incomplete"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("libx265.ts'")));
  }
}

// Their counters begin anew, and nothing is missing.
TEST_F(DamagedBroadcast, RecordingsThatAreLaidEndToEndAreWhole) {
  const std::string bytes = readBytes(whole("libx264"));
  writeBytes(folder_ / "twice.ts", bytes + bytes);
  for (const char* codec : {"copy", "ffv1"}) {
    const RunResult result = converted(folder_ / "twice.ts", codec);
    EXPECT_EQ(result.status, 0) << codec << ": " << result.err;
  }
}

// What a recorder wrote last is cut anywhere.
TEST_F(DamagedBroadcast, ACopyOfARecordingThatWasStoppedIsWhole) {
  const std::string bytes = readBytes(whole("libx264"));
  writeBytes(folder_ / "stopped.ts", bytes.substr(0, bytes.size() / kPacket * 9 / 10 * kPacket));
  const RunResult result = converted(folder_ / "stopped.ts", "copy");
  EXPECT_EQ(result.status, 0) << result.err;
}

}  // namespace
}  // namespace kestrel::test
