#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/JoinFixture.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const Arguments kNever{"--reencode", "never"};

/// A subtitle's packet as ffprobe sees it; times in seconds.
struct Packet {
  double start = 0;
  double length = 0;
  std::string hash;
};

std::vector<Packet> subtitlePackets(const fs::path& file, const std::string& track = "s:0") {
  std::vector<Packet> packets;
  const auto probed =
      ffprobeJson(file, {"-show_packets", "-show_data_hash", "md5", "-select_streams", track});
  for (const auto& packet : probed["packets"])
    packets.push_back({std::stod(packet["pts_time"].get<std::string>()),
                       std::stod(packet.value("duration_time", std::string("0"))),
                       packet["data_hash"]});
  return packets;
}

/// The same, counted from the first picture.
std::vector<Packet> subtitlesByPictures(const fs::path& file) {
  auto packets = subtitlePackets(file);
  const double start = pictureTimes(file).front();
  for (Packet& packet : packets) packet.start -= start;
  return packets;
}

/// Whether they are the same, to `tolerance` seconds.
testing::AssertionResult areAlike(const std::vector<Packet>& some, const std::vector<Packet>& other,
                                  double tolerance) {
  if (some.size() != other.size())
    return testing::AssertionFailure() << some.size() << " and " << other.size() << " packets";
  for (size_t i = 0; i < some.size(); ++i)
    if (some[i].hash != other[i].hash || std::abs(some[i].start - other[i].start) > tolerance ||
        std::abs(some[i].length - other[i].length) > tolerance)
      return testing::AssertionFailure()
             << "packet " << i << ": " << some[i].start << " for " << some[i].length << ", "
             << other[i].start << " for " << other[i].length;
  return testing::AssertionSuccess();
}

struct Stretch {
  double start = 0;
  double end = 0;
  std::string title;
};

std::vector<Stretch> chaptersOf(const fs::path& file) {
  std::vector<Stretch> chapters;
  const auto probed = ffprobeJson(file);
  for (const auto& chapter : probed["chapters"])
    chapters.push_back({std::stod(chapter["start_time"].get<std::string>()),
                        std::stod(chapter["end_time"].get<std::string>()),
                        chapter["tags"].value("title", "")});
  return chapters;
}

testing::AssertionResult areNear(const std::vector<Stretch>& some,
                                 const std::vector<Stretch>& other, double tolerance) {
  if (some.size() != other.size())
    return testing::AssertionFailure() << some.size() << " and " << other.size() << " chapters";
  for (size_t i = 0; i < some.size(); ++i)
    if (some[i].title != other[i].title || std::abs(some[i].start - other[i].start) > tolerance ||
        std::abs(some[i].end - other[i].end) > tolerance)
      return testing::AssertionFailure()
             << "chapter '" << some[i].title << "': " << some[i].start << " to " << some[i].end;
  return testing::AssertionSuccess();
}

/// A text, seconds.
struct Text {
  double start = 0;
  double end = 0;
  std::string words;
};

class JoinSubtitlesTest : public JoinTest {
 protected:
  /// Texts in a file of their own.
  fs::path texts(const std::string& name, const std::vector<Text>& all) const {
    std::string file;
    for (const Text& text : all)
      file += fmt::format("1\n00:00:{:06.3f} --> 00:00:{:06.3f}\n{}\n\n", text.start, text.end,
                          text.words);
    for (char& c : file)
      if (c == '.') c = ',';
    writeBytes(folder_ / name, file);
    return folder_ / name;
  }

  fs::path chapters(const std::string& name, const std::vector<Stretch>& all) const {
    std::string file = ";FFMETADATA1\n";
    for (const Stretch& chapter : all)
      file += fmt::format("[CHAPTER]\nTIMEBASE=1/1000\nSTART={:.0f}\nEND={:.0f}\ntitle={}\n",
                          chapter.start * 1000, chapter.end * 1000, chapter.title);
    writeBytes(folder_ / name, file);
    return folder_ / name;
  }

  /// A clip with texts, which are copied as they come.
  fs::path withTexts(const std::string& name, const fs::path& clip, const std::vector<Text>& all,
                     const std::string& codec = "srt", const Arguments& options = {}) const {
    ffmpeg(joined({"-i", clip.string(), "-i", texts(name + ".srt", all).string(), "-map", "0:v",
                   "-map", "0:a", "-map", "1", "-c", "copy", "-c:s", codec},
                  joined(options, {(folder_ / name).string()})));
    return folder_ / name;
  }

  fs::path withChapters(const std::string& name, const fs::path& clip,
                        const std::vector<Stretch>& all, const Arguments& codecs = kCopy) const {
    ffmpeg(joined({"-i", clip.string(), "-i", chapters(name + ".txt", all).string(), "-map", "0",
                   "-map_chapters", "1"},
                  joined(codecs, {(folder_ / name).string()})));
    return folder_ / name;
  }

  /// The first two seconds of the numbered clip.
  fs::path half() {
    cut("numbered25.mp4", "mkv", kCopy);
    return first_;
  }
};

// Halves.

struct Kind {
  std::string extension;
  std::string subtitles;
  Arguments codecs = kCopy;  // of pictures and sound
};

class JoinSubtitledHalvesTest : public JoinSubtitlesTest,
                                public testing::WithParamInterface<Kind> {};

TEST_P(JoinSubtitledHalvesTest, TwoHalvesAreTheWhole) {
  const auto& [extension, codec, codecs] = GetParam();
  const auto file = [&](const std::string& name) { return folder_ / (name + ".mkv"); };
  const bool isMatroska = extension == "mkv";
  ffmpeg(joined({"-i", fixture("numbered25.mp4").string(), "-i",
                 texts("texts.srt", {{0.2, 0.9, "First"},
                                     {1.1, 1.8, "Second"},
                                     {2.3, 2.9, "Third"},
                                     {2.9, 3.1, "Fourth"},
                                     {3.5, 4.2, "Fifth"}})
                     .string()},
                joined(codecs, {"-c:s", isMatroska ? codec : "srt", file("all").string()})));
  ffmpeg({"-i", file("all").string(), "-map", "0", "-c", "copy", "-f", "segment", "-segment_times",
          "2", "-reset_timestamps", "1", file("all%d").string()});
  const Arguments copy{"-c", "copy", "-c:s", isMatroska ? "copy" : codec};
  const std::vector<Stretch> both{{0, 2, "One"}, {2, 5, "Größe"}};
  const auto whole = withChapters("whole." + extension, file("all"), both, copy);
  const auto first = withChapters("first." + extension, file("all0"), {{0, 2, "One"}}, copy);
  const auto second = withChapters("second." + extension, file("all1"), {{0, 3, "Größe"}}, copy);
  const auto output = folder_ / ("joined." + extension);

  const RunResult result = join({first, second}, output, kNever);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("sets the format; kept: 1 subtitle track, 1 chapter\n"));
  EXPECT_THAT(result.out, HasSubstr("fits; kept: 1 subtitle track, 1 chapter\n"));
  EXPECT_EQ(packetHashes(output, "v"), packetHashes(whole, "v"));
  EXPECT_EQ(streamOf(output, "subtitle")["codec_name"], streamOf(whole, "subtitle")["codec_name"]);
  const auto packets = subtitlesByPictures(whole);
  EXPECT_GE(packets.size(), 5);
  EXPECT_TRUE(areAlike(subtitlesByPictures(output), packets, 0.002));
  // The second half's sound, which begins up to 0.08 s before its pictures, is where its time is 0.
  EXPECT_TRUE(areNear(chaptersOf(output), both, 0.1));
}

const Arguments kWeb{"-c:v", "libvpx", "-deadline", "realtime", "-cpu-used", "8",
                     "-g",   "25",     "-b:v",      "200k",     "-c:a",      "libopus"};

INSTANTIATE_TEST_SUITE_P(, JoinSubtitledHalvesTest,
                         testing::Values(Kind{"mp4", "mov_text"}, Kind{"mov", "mov_text"},
                                         Kind{"mkv", "srt"}, Kind{"mkv", "ass"},
                                         Kind{"mkv", "webvtt"}, Kind{"webm", "webvtt", kWeb}),
                         [](const auto& tested) {
                           return tested.param.extension + "_" + tested.param.subtitles;
                         });

TEST_F(JoinSubtitlesTest, BitmapsOfABroadcastAreKept) {
  KESTREL_NEED_MEDIA("dvb-subtitles.ts");
  const auto whole = folder_ / "whole.ts";
  ffmpeg({"-f", "lavfi", "-i", "color=0x404870:s=720x576:r=25:d=33", "-i",
          mediaFile("dvb-subtitles.ts").string(), "-map", "0:v", "-map", "1:s", "-c:v",
          "mpeg2video", "-g", "50", "-q:v", "8", "-c:s", "copy", whole.string()});
  ffmpeg({"-i", whole.string(), "-map", "0", "-c", "copy", "-f", "segment", "-segment_times", "20",
          "-reset_timestamps", "1", (folder_ / "half%d.ts").string()});
  const auto late = folder_ / "late.ts";
  ffmpeg({"-i", (folder_ / "half1.ts").string(), "-map", "0", "-c", "copy", "-output_ts_offset",
          "77", late.string()});
  const auto expected = subtitlesByPictures(whole);
  EXPECT_THAT(expected, SizeIs(testing::Gt(40)));
  for (const std::string name : {"joined.ts", "joined.mkv"}) {
    const RunResult result = join({folder_ / "half0.ts", late}, folder_ / name, kNever);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("fits; kept: 1 subtitle track\n"));
    // One lies a picture before the seam and came with the second half.
    EXPECT_TRUE(areAlike(subtitlesByPictures(folder_ / name), expected, 0.041)) << name;
  }
}

// The seam.

TEST_F(JoinSubtitlesTest, WhatLastsLongerThanThePicturesEndsAtTheSeam) {
  const auto clip = withTexts("long.mkv", half(),
                              {{0.5, 0.6, "short"}, {1.5, 9, "long"}, {5, 6, "behind the end"}});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({clip, clip}, output, kNever);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, Not(HasSubstr("ended early")));
  const auto times = pictureTimes(output);
  ASSERT_EQ(times.size(), 100);
  const auto packets = subtitlePackets(output);
  const auto own = subtitlePackets(clip);
  ASSERT_THAT(packets, SizeIs(5));
  EXPECT_NEAR(packets[1].start, own[1].start, 0.002);
  EXPECT_NEAR(packets[1].start + packets[1].length, times[50], 0.002);
  EXPECT_NEAR(packets[2].start - times[50], own[0].start - pictureTimes(clip)[0], 0.002);
  EXPECT_NEAR(packets[3].length, 7.5, 0.002);  // nothing follows
  EXPECT_NEAR(packets[4].length, 1, 0.002);
}

TEST_F(JoinSubtitlesTest, ASignForTheWholeInputIsWrittenWhereItBeginsAndCutAtTheEnd) {
  const auto quarterMinute = folder_ / "quarter.mkv";
  ffmpeg({"-stream_loop", "2", "-i", fixture("numbered25.mp4").string(), "-c", "copy",
          quarterMinute.string()});
  const auto clip = withTexts("sign.mkv", quarterMinute, {{0.1, 59, "a sign"}}, "ass");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({clip, clip}, output, kNever).status, 0);
  const double seam = pictureTimes(output).at(375);
  const auto packets = subtitlePackets(output);
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_NEAR(packets[0].start + packets[0].length, seam, 0.05);
  // Players that read the file from its beginning come by it in time.
  const auto all = ffprobeJson(output, {"-show_packets"})["packets"];
  const auto sign = std::ranges::find(all, "subtitle", [](const auto& packet) {
    return packet["codec_type"].template get<std::string>();
  });
  ASSERT_TRUE(sign != all.end() && sign != all.begin());
  EXPECT_LT(std::stod((*std::prev(sign))["dts_time"].get<std::string>()), 0.5);
}

TEST_F(JoinSubtitlesTest, WhatBeginsBeforeThePicturesBeginsWithThem) {
  const auto early = withTexts("early.mkv", half(),
                               {{0, 0.3, "before"}, {0.2, 0.9, "first"}, {1.1, 1.4, "second"}});
  const auto late = folder_ / "late.mkv";  // pictures and sound begin half a second later
  ffmpeg({"-itsoffset", "0.5", "-i", first_.string(), "-i", (folder_ / "early.mkv.srt").string(),
          "-map", "0", "-map", "1", "-c", "copy", late.string()});
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({early, late}, output, kNever).status, 0);
  const auto times = pictureTimes(output);
  const double shift = times.at(50) - pictureTimes(late).front();
  const auto own = subtitlePackets(late);
  const auto packets = subtitlePackets(output);
  ASSERT_THAT(own, SizeIs(3));
  ASSERT_THAT(packets, SizeIs(5));
  EXPECT_NEAR(packets[3].start, times[50], 0.002);
  EXPECT_NEAR(packets[3].start + packets[3].length, own[1].start + own[1].length + shift, 0.002);
  EXPECT_NEAR(packets[4].start, own[2].start + shift, 0.002);
  EXPECT_NEAR(packets[4].length, 0.3, 0.002);
}

TEST_F(JoinSubtitlesTest, InputsWithOtherStartTimesKeepTheirDistances) {
  const auto clip = withTexts("clip.mp4", half(), {{0.4, 1, "a"}, {1.2, 1.5, "b"}}, "mov_text");
  const auto late = folder_ / "late.mp4";
  ffmpeg(
      {"-i", clip.string(), "-c", "copy", "-map", "0", "-output_ts_offset", "77", late.string()});
  const double start = pictureTimes(late).front();
  ASSERT_GT(start, 76);
  const auto output = folder_ / "out.mp4";
  ASSERT_EQ(join({late, late}, output, kNever).status, 0);
  const auto times = pictureTimes(output);
  EXPECT_NEAR(times.at(0), 0, 0.1);
  const auto own = subtitlePackets(late);
  const auto text = std::ranges::find_if(  // beside it there are gaps
      own, [](const Packet& packet) { return std::abs(packet.length - 0.6) < 0.002; });
  ASSERT_TRUE(text != own.end());
  std::vector<Packet> packets = subtitlePackets(output);
  std::erase_if(packets, [&](const Packet& packet) { return packet.hash != text->hash; });
  ASSERT_THAT(packets, SizeIs(2));
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_NEAR(packets[i].start, times.at(50 * i) + text->start - start, 0.002);
    EXPECT_NEAR(packets[i].length, 0.6, 0.002);
  }
}

TEST_F(JoinSubtitlesTest, EventsOfTwoInputsHaveNumbersOfTheirOwn) {
  const auto clip = withTexts("clip.mkv", half(), {{0.4, 1, "Some"}, {1.2, 1.5, "Others"}}, "ass");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({clip, clip}, output, kNever).status, 0);
  std::vector<std::string> numbers;
  const auto probed = ffprobeJson(output, {"-show_packets", "-show_data", "-select_streams", "s"});
  for (const auto& packet : probed["packets"]) {
    // "\n00000000: 302c 302c 4465 …  0,0,Default,…"
    const std::string data = packet["data"];
    numbers.push_back(data.substr(data.find("  ") + 2, 2));
  }
  EXPECT_THAT(numbers, ElementsAre("0,", "1,", "2,", "3,"));
}

// What is left out.

TEST_F(JoinSubtitlesTest, AnotherNumberOfTracksIsLeftOut) {
  const auto one = withTexts("one.mkv", half(), {{0.4, 1, "a"}});
  const auto two = folder_ / "two.mkv";
  ffmpeg({"-i", one.string(), "-map", "0", "-map", "0:s", "-c", "copy", two.string()});
  const auto output = folder_ / "out.mkv";
  RunResult result = join({one, two}, output, kNever);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("one.mkv': 1 subtitle track\n"));
  EXPECT_THAT(result.err, HasSubstr("two.mkv': 2 subtitle tracks\n"));
  EXPECT_EQ(ffprobeJson(output)["streams"].size(), 2);
  result = join({two, two}, output, joined(kNever, {"--force"}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("fits; kept: 2 subtitle tracks\n"));
  EXPECT_THAT(subtitlePackets(output, "s:0"), SizeIs(2));
  EXPECT_THAT(subtitlePackets(output, "s:1"), SizeIs(2));
}

TEST_F(JoinSubtitlesTest, ATrackWhoseCodecIsAnotherIsLeftOut) {
  const auto text = texts("texts.srt", {{0.4, 1, "a"}});
  half();
  for (const std::string codec : {"ass", "srt"})
    ffmpeg({"-i", first_.string(), "-i", text.string(), "-map", "0", "-map", "1", "-map", "1", "-c",
            "copy", "-c:s:0", codec, "-c:s:1", "srt", (folder_ / (codec + ".mkv")).string()});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({folder_ / "ass.mkv", folder_ / "srt.mkv"}, output, kNever);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("fits; kept: 1 subtitle track\n"));
  EXPECT_THAT(result.err, HasSubstr("srt.mkv': 1 subtitle track\n"));
  EXPECT_EQ(streamOf(output, "subtitle")["codec_name"], "subrip");
  EXPECT_THAT(subtitlePackets(output), SizeIs(2));
}

TEST_F(JoinSubtitlesTest, ContainersWithoutPlaceLeaveThemOut) {
  const auto clip =
      withChapters("clip.mkv", withTexts("texts.mkv", half(), {{0.4, 1, "a"}}), {{0, 1.5, "One"}});
  RunResult result = join({clip, clip}, folder_ / "out.mp4", kNever);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("fits; kept: 1 chapter\n"));
  EXPECT_THAT(result.err, HasSubstr("clip.mkv': 1 subtitle track\n"));
  EXPECT_THAT(chaptersOf(folder_ / "out.mp4"), SizeIs(2));
  for (const std::string name : {"out.ts", "out.avi"}) {
    result = join({clip, clip}, folder_ / name, {"--reencode", "auto"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("clip.mkv': 1 subtitle track, 1 chapter\n")) << name;
    EXPECT_THAT(ffprobeJson(folder_ / name)["streams"], SizeIs(2)) << name;
    EXPECT_THAT(chaptersOf(folder_ / name), IsEmpty()) << name;
  }
  result = work(folder_ / "out.ts", {{clip, -1, 1}, {clip, -1, 1}});
  EXPECT_THAT(result.err, HasSubstr("clip.mkv': 1 subtitle track, 1 chapter\n"));
}

TEST_F(JoinSubtitlesTest, WhatTurnsOutNotToJoinLosesItsSubtitlesWithAWord) {
  const auto clip = withTexts("clip.mkv", half(), {{0.4, 1, "a"}});
  const auto output = folder_ / "out.mkv";
  // The second takes over before the first has ended.
  const RunResult result = work(output, {{clip, 0, 1}, {clip, 1, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("encoding anew"));
  EXPECT_THAT(result.err, HasSubstr("left out of '" + clip.string() + "': 1 subtitle track\n"));
  EXPECT_EQ(ffprobeJson(output)["streams"].size(), 2);
}

// Chapters.

TEST_F(JoinSubtitlesTest, ChaptersMoveWithTheirPictures) {
  const auto clip =
      withChapters("clip.mp4", fixture("numbered25.mp4"), {{0, 2, "One"}, {2, 5, "Two"}});
  const auto plain = fixture("numbered25.mp4");
  for (const std::string when : {"never", "always"})
    for (const std::string name : {"out.mkv", "out.mp4"}) {
      const auto output = folder_ / name;
      const RunResult result = join({clip, plain, clip}, output, {"--reencode", when, "--force"});
      ASSERT_EQ(result.status, 0) << result.err;
      EXPECT_THAT(result.out, HasSubstr("sets the format; kept: 2 chapters\n"));
      EXPECT_THAT(result.out, HasSubstr("fits\n"));
      auto expected =
          std::vector<Stretch>{{0, 2, "One"}, {2, 5, "Two"}, {10, 12, "One"}, {12, 15, "Two"}};
      // The text track that MPEG-4 has for them has no holes.
      if (name == "out.mp4") expected[1].end = 10;
      EXPECT_TRUE(areNear(chaptersOf(output), expected, 0.06)) << name << " " << when;
    }
}

TEST_F(JoinSubtitlesTest, ChaptersOfInputsAtPositions) {
  const auto clip =
      withChapters("clip.mkv", fixture("numbered25.mp4"), {{0, 2, "One"}, {2, 4.5, "Two"}});
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(work(output, {{clip, 0, 1}, {clip, 8, 1}}).status, 0);
  EXPECT_TRUE(areNear(chaptersOf(output),
                      {{0, 2, "One"}, {2, 4.5, "Two"}, {8, 10, "One"}, {10, 12.5, "Two"}}, 0.06));
  // At twice its speed; the second takes over from the first.
  ASSERT_EQ(work(output, {{clip, 0, 2}, {clip, 1.5, 1}}).status, 0);
  EXPECT_TRUE(areNear(chaptersOf(output),
                      {{0, 1, "One"}, {1, 1.5, "Two"}, {1.5, 3.5, "One"}, {3.5, 6, "Two"}}, 0.06));
}

TEST_F(JoinSubtitlesTest, NoChaptersAreInvented) {
  const auto clip = fixture("numbered25.mp4");
  for (const std::string when : {"never", "always"}) {
    const auto output = folder_ / "out.mp4";
    ASSERT_EQ(join({clip, clip}, output, {"--reencode", when, "--force"}).status, 0);
    EXPECT_EQ(ffprobeJson(output)["streams"].size(), 2);
    EXPECT_THAT(chaptersOf(output), IsEmpty());
  }
}

}  // namespace
}  // namespace kestrel::test
