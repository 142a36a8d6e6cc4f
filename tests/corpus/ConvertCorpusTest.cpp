#include <gmock/gmock.h>

#include <algorithm>

#include "tests/corpus/Clips.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

double secondsOf(const nlohmann::json& object) {
  return object.contains("duration") ? std::stod(object["duration"].get<std::string>()) : -1;
}

bool isCover(const nlohmann::json& stream) { return stream["disposition"]["attached_pic"] == 1; }

bool hasStream(const nlohmann::json& probed, const std::string& type) {
  return std::ranges::any_of(probed["streams"], [&](const auto& stream) {
    return stream.value("codec_type", "") == type && !isCover(stream);
  });
}

/// How long ffmpeg finds a clip's first picture or sound stream to be, in seconds, from the first
/// frame to the end of the last.
double decodedSeconds(const fs::path& file, const std::string& kind) {
  const auto frames =
      ffprobeJson(file, {"-select_streams", kind + ":0", "-show_entries",
                         "frame=best_effort_timestamp_time,pkt_duration_time"})["frames"];
  double first = 1e9;
  double last = -1e9;
  for (const auto& frame : frames) {
    if (!frame.contains("best_effort_timestamp_time")) continue;
    const double time = std::stod(frame["best_effort_timestamp_time"].get<std::string>());
    const double duration = frame.contains("pkt_duration_time")
                                ? std::stod(frame["pkt_duration_time"].get<std::string>())
                                : 0;
    first = std::min(first, time);
    last = std::max(last, time + duration);
  }
  return std::max(0.0, last - first);
}

/// How many packets a file's first picture or sound stream has, but for pictures that are not
/// shown.
size_t packetCount(const fs::path& file, const std::string& kind) {
  const auto packets = ffprobeJson(
      file, {"-select_streams", kind + ":0", "-show_entries", "packet=flags"})["packets"];
  return static_cast<size_t>(std::ranges::count_if(packets, [&](const auto& packet) {
    return kind != "v" ||
           packet["flags"].template get<std::string>().find('D') == std::string::npos;
  }));
}

class ConvertCorpus : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam().empty()) GTEST_SKIP() << "no clips in " << mediaFile("").string();
  }

  TempDir folder_;
};

TEST_P(ConvertCorpus, BecomesASoundMp4OfTheSameLength) {
  const fs::path source = mediaFile(GetParam());
  const auto before = ffprobeJson(source);
  const bool hasVideo = hasStream(before, "video");
  const bool hasAudio = hasStream(before, "audio");
  const fs::path output = folder_ / (hasVideo ? "out.mp4" : "out.m4a");

  double longest = 0;
  if (hasVideo) longest = decodedSeconds(source, "v");
  if (hasAudio) longest = std::max(longest, decodedSeconds(source, "a"));

  // Small pictures are encoded sooner; that those of a clip's own size are right others test.
  const Arguments options =
      hasVideo ? Arguments{"--encoder-preset", "ultrafast", "--size", "50%"} : Arguments{};
  const RunResult result = convert(source, output, options);
  if (longest == 0) {  // streams are declared, but nothing of them is in the file
    EXPECT_TRUE(endsWithSentence(result, 1, source.string()));
    EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
    return;
  }
  ASSERT_TRUE(result.status == 0 || result.status == 3) << result.status << ": " << result.err;
  if (result.status == 3) {
    EXPECT_TRUE(endsWithSentence(result, 3, source.string()));
  }
  EXPECT_EQ(namesIn(folder_.path()), std::set<std::string>{output.filename().string()});

  EXPECT_NO_THROW(ffmpeg({"-i", output.string(), "-enc_time_base:v", "-1", "-f", "null", "-"}));
  const auto after = ffprobeJson(output);
  EXPECT_EQ(hasStream(after, "video"), hasVideo);
  EXPECT_EQ(hasStream(after, "audio"), hasAudio);
  // Subtitles may say that they last beyond the end.
  double seconds = 0;
  for (const auto& stream : after["streams"])
    if (stream["codec_type"] == "video" || stream["codec_type"] == "audio")
      seconds = std::max(seconds, secondsOf(stream));
  EXPECT_NEAR(seconds, longest, std::max(0.3, 0.02 * longest));
}

TEST_P(ConvertCorpus, IsCopiedPacketByPacket) {
  const fs::path source = mediaFile(GetParam());
  const auto before = ffprobeJson(source);
  const fs::path output = folder_ / "out.mkv";
  const RunResult result =
      convert(source, output, {"--video-codec", "copy", "--audio-codec", "copy"});
  if (result.status == 1) {
    EXPECT_TRUE(endsWithSentence(result, 1, ""));
    EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
    return;
  }
  for (const auto& [type, letter] : {std::pair{"video", "v"}, {"audio", "a"}}) {
    SCOPED_TRACE(type);
    if (!hasStream(before, type)) continue;
    EXPECT_EQ(packetCount(output, letter), packetCount(source, letter));
  }
}

INSTANTIATE_TEST_SUITE_P(, ConvertCorpus, testing::ValuesIn(clipNames()), [](const auto& tested) {
  std::string name = tested.param.empty() ? "none" : tested.param;
  std::ranges::replace_if(
      name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
});

}  // namespace
}  // namespace kestrel::test
