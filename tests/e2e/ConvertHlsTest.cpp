#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

bool hasBrowser() { return run({"sh", "-c", "command -v chromium"}).status == 0; }

/// What a browser sees that plays one size of a presentation through Media Source Extensions.
nlohmann::json played(const std::filesystem::path& folder, const std::string& master, int variant) {
  const auto script = fixture("hls/play_in_browser.py");
  const RunResult result =
      run({"python3", script.string(), folder.string(), master, std::to_string(variant)});
  EXPECT_EQ(result.status, 0) << result.err;
  return nlohmann::json::parse(result.out);
}

/// One stretch from 0 to the playlist's end, without a gap.
void expectWhole(const nlohmann::json& buffer, double tolerance) {
  ASSERT_EQ(buffer["buffered"].size(), 1u) << buffer;
  EXPECT_NEAR(buffer["buffered"][0][0].get<double>(), 0, tolerance);
  EXPECT_NEAR(buffer["buffered"][0][1].get<double>(), buffer["length"].get<double>(), tolerance);
}

// The whole way of a user's, up to the pictures on the screen. 2 s at 25 pictures a second.
TEST(ConvertHls, IsPlayedByABrowser) {
  if (!hasBrowser()) GTEST_SKIP() << "no chromium";
  const TempDir folder;
  ASSERT_TRUE(converts(fixture("av25.mp4"), folder / "My movie.m3u8",
                       {"--ladder", "180,90", "--fragment", "0.4"}));
  const int heights[] = {180, 90};
  for (int variant = 0; variant < 2; ++variant) {
    const auto seen = played(folder.path(), "My movie.m3u8", variant);
    SCOPED_TRACE(seen.dump());
    EXPECT_TRUE(seen["errors"].empty());
    EXPECT_TRUE(seen["ended"].get<bool>());
    EXPECT_EQ(seen["height"], heights[variant]);
    EXPECT_EQ(seen["decoded"], 50);
    EXPECT_EQ(seen["corrupted"], 0);
    EXPECT_GT(seen["pictures"].get<int>(), 1);
    EXPECT_NEAR(seen["duration"].get<double>(), 2, 0.05);
    EXPECT_NEAR(seen["time"].get<double>(), seen["duration"].get<double>(), 0.05);
    expectWhole(seen["video"], 0.002);
    expectWhole(seen["audio"], 0.03);
  }
}

TEST(ConvertHls, SubtitlesAreShownAtTheirTimes) {
  const TempDir folder;
  ASSERT_TRUE(converts(fixture("text.mkv"), folder / "out.m3u8", {"--fragment", "0.4"}));
  const auto probed = ffprobeJson(folder / "out.segments/subtitles-1/playlist.m3u8",
                                  {"-allowed_extensions", "ALL", "-show_packets"});
  std::vector<std::pair<std::string, std::string>> packets;
  for (const auto& packet : probed["packets"])
    packets.emplace_back(packet["pts_time"], packet["duration_time"]);
  const std::vector<std::pair<std::string, std::string>> expected{{"0.200000", "0.700000"},
                                                                  {"1.100000", "0.700000"}};
  EXPECT_EQ(packets, expected);
  if (!hasBrowser()) GTEST_SKIP() << "no chromium";
  const auto seen = played(folder.path(), "out.m3u8", 0);
  SCOPED_TRACE(seen.dump());
  EXPECT_TRUE(seen["errors"].empty());
  const auto cues = nlohmann::json::parse(
      R"([[0.2, 0.9, "First line"], [1.1, 1.8, "Second line\nwith a second row"]])");
  EXPECT_EQ(seen["subtitles"]["cues"], cues);
  EXPECT_EQ(seen["subtitles"]["shown"], cues);
}

TEST(ConvertHls, TheProgramTellsOfThePlan) {
  const TempDir folder;
  const RunResult result =
      convert(fixture("av25.mp4"), folder / "out.m3u8",
              {"--ladder", "1080,180p,90", "--fragment", "0.4", "--dry-run", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto plan = nlohmann::json::parse(result.out);
  EXPECT_EQ(plan["segment"], 0.4);
  EXPECT_EQ(plan["streams"][0]["height"], 180);
  ASSERT_EQ(plan["streams"][0]["rungs"].size(), 1u);
  EXPECT_EQ(plan["streams"][0]["rungs"][0]["width"], 160);
  EXPECT_THAT(plan["streams"][0]["losses"].dump(), HasSubstr("1080 lines"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ConvertHls, WrongLaddersEndWithASentence) {
  const TempDir folder;
  EXPECT_TRUE(
      endsWithSentence(convert(fixture("av25.mp4"), folder / "out.m3u8", {"--ladder", "tall"}), 2,
                       "--ladder: 'tall' is no list of heights such as 1080,720,480"));
  EXPECT_TRUE(endsWithSentence(convert(fixture("av25.mp4"), folder / "out.mp4", {"--ladder", "90"}),
                               2, "--ladder: mp4 has none, only HLS has (.m3u8)"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// A track by itself is one of CMAF; others beside it have no place there.
TEST(ConvertHls, FragmentsOfOneTrackAreCmaf) {
  const TempDir folder;
  EXPECT_TRUE(converts(fixture("av25.mp4"), folder / "pictures.mp4",
                       {"--fragment", "0.4", "--audio-codec", "none"}));
  EXPECT_TRUE(converts(fixture("av25.mp4"), folder / "both.mp4", {"--fragment", "0.4"}));
  const auto brands = [&](const std::string& name) {
    return readBytes(folder / name).substr(0, 40).find("cmfc") != std::string::npos;
  };
  EXPECT_TRUE(brands("pictures.mp4"));
  EXPECT_FALSE(brands("both.mp4"));
}

}  // namespace
}  // namespace kestrel::test
