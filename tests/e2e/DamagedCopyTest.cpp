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

/// A clip that ends in the middle of a picture, which then has no place behind start codes.
class DamagedCopy : public testing::Test {
 protected:
  DamagedCopy() {
    ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-movflags", "+faststart",
            whole_.string()});
    const auto probed = ffprobeJson(whole_, {"-show_packets", "-select_streams", "v"});
    const auto& packets = probed["packets"];
    const auto numberOf = [](const nlohmann::json& packet, const char* key) {
      return std::stoul(packet[key].get<std::string>());
    };
    const size_t end = numberOf(packets[80], "pos") + numberOf(packets[80], "size") / 2;
    writeBytes(cut_, readBytes(whole_).substr(0, end));
  }

  /// What is left but for the damaged picture.
  void expectTheRest(const RunResult& result) const {
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_THAT(result.err, HasSubstr("damaged: 1 of its packets could not be copied"));
    const auto probed =
        ffprobeJson(output_, {"-show_packets", "-show_entries", "packet=codec_type"});
    size_t pictures = 0;
    size_t sounds = 0;
    for (const auto& packet : probed["packets"])
      ++(packet["codec_type"] == "video" ? pictures : sounds);
    EXPECT_EQ(pictures, 80);
    EXPECT_GT(sounds, 40);
    EXPECT_NO_THROW(ffmpeg({"-i", output_.string(), "-f", "null", "-"}));
  }

  TempDir folder_;
  const std::filesystem::path whole_ = folder_ / "whole.mp4";
  const std::filesystem::path cut_ = folder_ / "cut.mp4";
  const std::filesystem::path output_ = folder_ / "out.ts";
};

TEST_F(DamagedCopy, OfAConversionCostsThePacket) {
  expectTheRest(convert(cut_, output_, {"--video-codec", "copy", "--audio-codec", "copy"}));
}

TEST_F(DamagedCopy, OfAJoinCostsThePacket) {
  expectTheRest(run({kestrelBinary(), "join", cut_.string(), "-o", output_.string()}));
}

TEST_F(DamagedCopy, OfAJoinIsToldOfTheInputThatHadIt) {
  for (const auto& inputs : {std::pair{whole_, cut_}, {cut_, whole_}}) {
    const RunResult result = run({kestrelBinary(), "join", inputs.first.string(),
                                  inputs.second.string(), "-o", output_.string(), "--force"});
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_THAT(result.err, HasSubstr("cut.mp4' is damaged: 1 of its packets"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("whole.mp4'")));
  }
}

TEST_F(DamagedCopy, OfACompositionCostsThePacket) {
  expectTheRest(run({kestrelBinary(), "compose", "-o", output_.string(), cut_.string() + ":0",
                     cut_.string() + ":1"}));
}

/// Two pictures in the middle whose packets lie about their lengths.
class DamagedMiddle : public testing::Test {
 protected:
  DamagedMiddle() {
    // A key picture every 11 pictures.
    ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c:v", "libx264", "-preset", "ultrafast",
            "-g", "11", "-c:a", "copy", whole_.string()});
    const auto probed = ffprobeJson(whole_, {"-show_packets", "-select_streams", "v"});
    std::string bytes = readBytes(whole_);
    for (const size_t number : {60, 61})
      bytes[std::stoul(probed["packets"][number]["pos"].get<std::string>())] = '\x7f';
    writeBytes(damaged_, bytes);
  }

  RunResult from(const std::string& start, const std::string& codec) const {
    return convert(damaged_, folder_ / "out.ts",
                   {"--video-codec", codec, "--start", start, "--force"});
  }

  TempDir folder_;
  const std::filesystem::path whole_ = folder_ / "whole.mp4";
  const std::filesystem::path damaged_ = folder_ / "damaged.mp4";
};

// Pictures 60 and 61 begin 2.4 s after the start.
TEST_F(DamagedMiddle, IsToldWhereverTheSpanBeginsBeforeIt) {
  for (const std::string start : {"0", "0.5", "1.3", "2"}) {
    SCOPED_TRACE(start);
    for (const auto& [codec, what] : {std::pair{"mpeg2video", "decoded"}, {"copy", "copied"}}) {
      const RunResult result = from(start, codec);
      EXPECT_EQ(result.status, 3) << result.err;
      EXPECT_THAT(result.err, HasSubstr("damaged.mp4' is damaged: 2 of its packets could not be " +
                                        std::string(what)));
    }
  }
}

TEST_F(DamagedMiddle, IsNothingToASpanThatBeginsBehindIt) {
  for (const char* codec : {"mpeg2video", "copy"}) EXPECT_EQ(from("4.5", codec).status, 0) << codec;
}

}  // namespace
}  // namespace kestrel::test
