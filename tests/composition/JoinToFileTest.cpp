#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// A packet's start and length in milliseconds, and a part of its payload.
struct Shown {
  int64_t start = 0;
  int64_t length = 0;
  std::string text;
  bool operator==(const Shown&) const = default;
};

void PrintTo(const Shown& shown, std::ostream* out) {
  *out << shown.start << " for " << shown.length << ": '" << shown.text << "'";
}

/// Bytes as ffprobe shows them: 16 to a row, in hexadecimal and as far as they can be read.
std::string readable(const std::string& shown) {
  constexpr size_t kColumn = 51;
  std::string text;
  std::istringstream rows(shown);
  for (std::string row; std::getline(rows, row);)
    if (row.size() > kColumn) text += row.substr(kColumn);
  return text;
}

/// Joins of two seconds of pictures, stream 0, with the subtitles that a test makes, stream 1.
class JoinToFileTest : public testing::Test {
 protected:
  /// The subtitles' file may be of any kind that ffmpeg reads.
  std::string clip(const std::string& name, const std::string& subtitles) {
    const auto own = folder_ / ("of-" + name);
    std::ofstream(own, std::ios::binary) << subtitles;
    const auto file = folder_ / (name + ".mkv");
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-y", "-i", fixture("video-only.mkv").string(), "-i",
             own.string(), "-map", "0", "-map", "1", "-c", "copy", file.string()});
    EXPECT_EQ(result.status, 0) << result.err;
    return file.string();
  }

  void join(const std::vector<std::string>& inputs, const std::vector<int32_t>& streams) {
    LMMovieComposition::TrackList tracks;
    for (const std::string& input : inputs) {
      const auto source = LMMediaSource::mediaWithPath(input);
      for (const int32_t stream : streams) {
        tracks.push_back(std::make_shared<LMMovieCompositionTrack>());
        tracks.back()->setSource(source);
        tracks.back()->setTrack(stream);
        tracks.back()->setPosition(LMMovieComposition::kBehind);
      }
    }
    composition_.setTracks(tracks);
    composition_.joinToFile(output_.string());
  }

  std::vector<Shown> subtitles() const {
    std::vector<Shown> all;
    const auto probed =
        ffprobeJson(output_, {"-show_packets", "-show_data", "-select_streams", "s"});
    const auto milliseconds = [](const nlohmann::json& packet, const char* key) {
      return std::llround(std::stod(packet.value(key, std::string("0"))) * 1000);
    };
    for (const auto& packet : probed["packets"])
      all.push_back({milliseconds(packet, "pts_time"), milliseconds(packet, "duration_time"),
                     readable(packet["data"])});
    return all;
  }

  LMMovieComposition composition_;
  TempDir folder_;
  const std::filesystem::path output_ = folder_ / "out.mkv";
};

/// Events of SubStation Alpha, which are numbered in the order of the file.
std::string events(const std::vector<std::string>& all) {
  std::string file =
      "[Script Info]\nScriptType: v4.00+\n\n[V4+ Styles]\nFormat: Name, Fontname, Fontsize\n"
      "Style: Default,Sans,16\n\n[Events]\n"
      "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";
  for (const std::string& event : all) file += "Dialogue: 0," + event + "\n";
  return file;
}

TEST_F(JoinToFileTest, SubtitlesMoveWithThePicturesWhicheverTrackComesFirst) {
  const auto first = clip("first", "1\n00:00:00,500 --> 00:00:01,000\na\n\n");
  const auto second = clip("second", "1\n00:00:00,100 --> 00:00:01,200\nb\n\n");
  join({first, second}, {1, 0});
  EXPECT_FALSE(composition_.lastError());
  EXPECT_EQ(ffprobeJson(output_)["streams"][0]["codec_name"], "subrip");
  EXPECT_THAT(subtitles(), ElementsAre(Shown{500, 500, "a"}, Shown{2100, 1100, "b"}));
}

TEST_F(JoinToFileTest, TextsOfTheSameTimeStayThere) {
  const auto first = clip("first",
                          "1\n00:00:00,500 --> 00:00:01,000\na\n\n"
                          "2\n00:00:00,500 --> 00:00:00,700\nb\n\n"
                          "3\n00:00:00,500 --> 00:00:00,600\nc\n\n");
  join({first}, {0, 1});
  EXPECT_THAT(subtitles(),
              ElementsAre(Shown{500, 500, "a"}, Shown{500, 200, "b"}, Shown{500, 100, "c"}));
}

TEST_F(JoinToFileTest, InputsAreOpenWhileTheirTurnIs) {
  std::vector<std::shared_ptr<LMMediaSource>> sources;
  LMMovieComposition::TrackList tracks;
  for (int i = 0; i < 3; ++i) {
    sources.push_back(LMMediaSource::mediaWithPath(fixture("video-only.mkv").string()));
    tracks.push_back(std::make_shared<LMMovieCompositionTrack>());
    tracks.back()->setSource(sources.back());
    tracks.back()->setPosition(LMMovieComposition::kBehind);
  }
  sources[1]->open();
  size_t mostOpen = 0;
  composition_.setProgress([&](double, int64_t) {
    mostOpen = std::max<size_t>(
        mostOpen, std::ranges::count_if(sources, [](const auto& s) { return s->isOpen(); }));
  });
  composition_.setTracks(tracks);
  composition_.joinToFile(output_.string());
  EXPECT_FALSE(composition_.lastError());
  EXPECT_EQ(mostOpen, 2U);  // the one whose turn it is, and the one that was open
  EXPECT_FALSE(sources[0]->isOpen());
  EXPECT_TRUE(sources[1]->isOpen());
  EXPECT_FALSE(sources[2]->isOpen());
  EXPECT_NEAR(tracks[0]->reached(), 2, 0.1);
}

TEST_F(JoinToFileTest, TracksWithoutAnInputDoNotJoin) {
  const auto track = std::make_shared<LMMovieCompositionTrack>();
  composition_.setTracks({track});
  composition_.joinToFile(output_.string());
  EXPECT_EQ(composition_.lastError().code, LMMovieComposition::kDoesNotJoin);
  track->setPath((folder_ / "absent.mkv").string());
  composition_.joinToFile(output_.string());
  EXPECT_EQ(composition_.lastError().code, LMMovieComposition::kDoesNotJoin);
}

TEST_F(JoinToFileTest, SubtitlesAloneDoNotJoin) {
  const auto first = clip("first", "1\n00:00:00,500 --> 00:00:01,000\na\n\n");
  join({first, first}, {1});
  EXPECT_EQ(composition_.lastError().code, LMMovieComposition::kDoesNotJoin);
}

TEST_F(JoinToFileTest, NumbersOfEventsThatTwoInputsHaveBecomeOthers) {
  const auto first = clip("first", events({"0:00:00.10,0:00:00.20,Default,,0,0,0,,a",
                                           "0:00:00.30,0:00:00.40,Default,,0,0,0,,b"}));
  const auto second = clip("second", events({"0:00:01.00,0:00:01.10,Default,,0,0,0,,d",
                                             "0:00:00.50,0:00:00.60,Default,,0,0,0,,c"}));
  const auto third = clip("third", events({"0:00:01.00,0:00:01.10,Default,,0,0,0,,e"}));
  join({first, second, third}, {0, 1});
  // The second input's events are 1 and 0. The first one makes them 3 and 2.
  EXPECT_THAT(subtitles(), ElementsAre(Shown{100, 100, "0,0,Default,,0,0,0,,a"},
                                       Shown{300, 100, "1,0,Default,,0,0,0,,b"},
                                       Shown{2500, 100, "3,0,Default,,0,0,0,,c"},
                                       Shown{3000, 100, "2,0,Default,,0,0,0,,d"},
                                       Shown{5000, 100, "4,0,Default,,0,0,0,,e"}));
}

TEST_F(JoinToFileTest, NumbersOfEventsThatGoOnStayUntilTheyRepeat) {
  const auto first = clip("first", events({"0:00:00.10,0:00:00.20,Default,,0,0,0,,a"}));
  const auto second = clip("second", events({"0:00:01.00,0:00:01.10,Default,,0,0,0,,d",
                                             "0:00:00.50,0:00:00.60,Default,,0,0,0,,b",
                                             "0:00:00.70,0:00:00.80,Default,,0,0,0,,c"}));
  join({first, second}, {0, 1});
  // Not before the event 0 of the second input could they not be halves of one file.
  EXPECT_THAT(subtitles(), ElementsAre(Shown{100, 100, "0,0,Default,,0,0,0,,a"},
                                       Shown{2500, 100, "1,0,Default,,0,0,0,,b"},
                                       Shown{2700, 100, "2,0,Default,,0,0,0,,c"},
                                       Shown{3000, 100, "3,0,Default,,0,0,0,,d"}));
}

/// Bitmap subtitles without pictures: sets that say what is shown from their time on.
std::string compositions(const std::vector<double>& times) {
  std::string file;
  const auto number = [&](uint32_t value, int bytes) {
    while (bytes-- > 0) file += static_cast<char>(value >> (8 * bytes) & 0xFF);
  };
  for (size_t i = 0; i < times.size(); ++i) {
    const auto segment = [&](uint32_t type, uint32_t length) {
      file += "PG";
      number(static_cast<uint32_t>(std::lround(times[i] * 90000)), 4);
      number(0, 4);
      number(type, 1);
      number(length, 2);
    };
    segment(0x16, 11);  // the composition: size, rate, number, new, without objects
    number(320, 2);
    number(180, 2);
    number(0x10, 1);
    number(static_cast<uint32_t>(i), 2);
    number(0x80, 1);
    number(0, 3);
    segment(0x80, 0);  // its end
  }
  return file;
}

TEST_F(JoinToFileTest, WhatEndsAtNoTimeKeepsItsTime) {
  const auto first = clip("first", compositions({0, 1, 2.5}));
  join({first, first}, {0, 1});
  std::vector<int64_t> starts;
  for (const Shown& shown : subtitles()) starts.push_back(shown.start);
  EXPECT_THAT(starts, ElementsAre(0, 1000, 2000, 2500, 3000, 4500));
}

// It lies in the file where a player that reads on and on needs it.
TEST_F(JoinToFileTest, TextsDoNotWaitForPicturesThatHaveEnded) {
  const auto pictures = clip("pictures", "1\n00:00:03,000 --> 00:00:03,500\na\n\n");
  const auto file = folder_ / "long.mkv";
  const RunResult result =
      run({"ffmpeg", "-v", "error", "-y", "-i", pictures, "-f", "lavfi", "-i", "sine=d=20", "-map",
           "0", "-map", "1", "-c", "copy", "-c:a", "aac", file.string()});
  ASSERT_EQ(result.status, 0) << result.err;
  join({file.string()}, {0, 1, 2});
  EXPECT_FALSE(composition_.lastError()) << composition_.lastError().message;
  double sound = 0;
  bool isFound = false;
  const auto probed = ffprobeJson(output_, {"-show_packets"});
  for (const auto& packet : probed["packets"]) {
    if (packet["codec_type"] == "subtitle") {
      isFound = true;
      EXPECT_LT(sound, 5.5);
    }
    if (packet["codec_type"] == "audio") sound = std::stod(packet["pts_time"].get<std::string>());
  }
  EXPECT_TRUE(isFound);
}

// Containers that write chapters in their header would write it anew, over packets.
TEST_F(JoinToFileTest, ContainersThatTakeNoLateChaptersGetNone) {
  std::ofstream(folder_ / "chapters") << ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\n"
                                         "END=1000\ntitle=one\n";
  const auto file = folder_ / "in.mkv";
  const RunResult result =
      run({"ffmpeg", "-v", "error", "-y", "-i", fixture("numbered25.mp4").string(), "-i",
           (folder_ / "chapters").string(), "-map_metadata", "1", "-c", "copy", file.string()});
  ASSERT_EQ(result.status, 0) << result.err;
  for (const std::string name : {"out.asf", "out.mkv"}) {
    LMMovieComposition::TrackList tracks;
    const auto source = LMMediaSource::mediaWithPath(file.string());
    for (const int32_t stream : {0, 1}) {
      tracks.push_back(std::make_shared<LMMovieCompositionTrack>());
      tracks.back()->setSource(source);
      tracks.back()->setTrack(stream);
    }
    composition_.setTracks(tracks);
    composition_.joinToFile((folder_ / name).string());
    EXPECT_FALSE(composition_.lastError()) << name;
    EXPECT_EQ(ffprobeJson(folder_ / name)["chapters"].size(), name == "out.mkv" ? 1U : 0U);
    const RunResult decoded =
        run({"ffmpeg", "-v", "error", "-i", (folder_ / name).string(), "-f", "null", "-"});
    EXPECT_EQ(decoded.err, "") << name;
  }
}

TEST_F(JoinToFileTest, TimesThatAreNoneAreSurvived) {
  const auto first = clip("first",
                          "1\n00:00:00,500 --> 99:00:01,000\na\n\n"
                          "2\n00:00:00,500 --> 00:00:00,500\nb\n\n"
                          "3\n00:00:01,500 --> 00:00:00,500\nc\n\n"
                          "4\n99:00:00,000 --> 99:00:01,000\nd\n\n");
  join({first, first}, {0, 1});
  EXPECT_FALSE(composition_.lastError());
  const auto all = subtitles();
  ASSERT_THAT(all, testing::Not(IsEmpty()));
  EXPECT_EQ(all[0], (Shown{500, 1500, "a"}));
}

}  // namespace
}  // namespace kestrel::test
