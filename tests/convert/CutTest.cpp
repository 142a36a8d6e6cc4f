#include <gmock/gmock.h>
#include <kestrel/convert/Cut.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct SeenPicture {
  double time = 0;
  std::string hash;
};

/// A file's pictures as ffmpeg decodes them, which takes no error.
std::vector<SeenPicture> picturesOf(const std::filesystem::path& file, bool isFixture) {
  const std::vector<std::string> decode{
      "ffmpeg", "-v",          "error", "-xerror",  "-i", file.string(), "-map", "0:v:0",
      "-vsync", "passthrough", "-f",    "framemd5", "-"};
  const RunResult hashes = isFixture ? runPeer(decode) : run(decode);
  EXPECT_EQ(hashes.err, "") << file;
  std::vector<SeenPicture> pictures;
  const auto frames = ffprobeJson(file, {"-select_streams", "v:0", "-show_frames", "-show_entries",
                                         "frame=pts_time"})["frames"];
  std::istringstream lines(hashes.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('#')) continue;
    if (pictures.size() >= frames.size()) return {};
    const std::string time = frames[pictures.size()]["pts_time"];
    pictures.push_back({std::stod(time), line.substr(line.rfind(' ') + 1)});
  }
  EXPECT_EQ(pictures.size(), frames.size());
  return pictures;
}

double startOf(const std::filesystem::path& file) {
  const std::string start = ffprobeJson(file)["format"]["start_time"];
  return std::stod(start);
}

std::vector<float> soundOf(const std::filesystem::path& file) {
  const RunResult raw =
      run({"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:a:0", "-f", "f32le", "-"});
  std::vector<float> samples(raw.out.size() / sizeof(float));
  std::memcpy(samples.data(), raw.out.data(), samples.size() * sizeof(float));
  return samples;
}

int64_t us(double seconds) { return std::llround(seconds * 1e6); }

std::vector<CutSpan> spansOf(const std::vector<std::pair<double, double>>& seconds) {
  std::vector<CutSpan> spans;
  for (const auto& [start, end] : seconds) spans.push_back({us(start), us(end)});
  return spans;
}

class Cut : public testing::Test {
 protected:
  /// Cuts a fixture and compares the pictures with those that ffmpeg sees in it.
  CutReport cutAndCompare(const std::string& input, const std::string& output,
                          const std::vector<std::pair<double, double>>& spans) {
    const auto source = fixture(input);
    const auto result = folder_ / output;
    const CutReport report = cut({.input = source.string(),
                                  .output = result.string(),
                                  .keep = spansOf(spans),
                                  .replaces = true});
    const double start = startOf(source);
    std::vector<SeenPicture> wanted;
    std::vector<bool> isEncoded;
    for (const auto& [from, to] : spans)
      for (const SeenPicture& picture : picturesOf(source, true)) {
        const int64_t time = us(picture.time - start);
        if (time < us(from) || time >= us(to)) continue;
        wanted.push_back(picture);
        isEncoded.push_back(std::ranges::any_of(report.stretches, [&](const CutStretch& stretch) {
          return stretch.kind == "video" && stretch.isEncoded && stretch.start <= time &&
                 time < stretch.end;
        }));
      }
    const auto seen = picturesOf(result, false);
    EXPECT_EQ(seen.size(), wanted.size());
    for (size_t i = 0; i < std::min(seen.size(), wanted.size()); ++i)
      EXPECT_TRUE(isEncoded[i] || seen[i].hash == wanted[i].hash) << input << ", picture " << i;
    return report;
  }

  static int64_t encodedPictures(const CutReport& report) {
    int64_t count = 0;
    for (const CutStretch& stretch : report.stretches)
      if (stretch.kind == "video" && stretch.isEncoded) count += stretch.packets;
    return count;
  }

  TempDir folder_;
};

// Key pictures lie at 0, 1.2, 2.4, 3.6 and 4.8 s.
TEST_F(Cut, EncodesOnlyWhatABorderLeavesOfAGroup) {
  const CutReport report = cutAndCompare("cut.mp4", "out.mp4", {{0.9, 4.2}});
  ASSERT_THAT(report.stretches, SizeIs(testing::Ge(3u)));
  EXPECT_TRUE(report.stretches[0].isEncoded);
  EXPECT_EQ(report.stretches[0].start, us(0.92));
  EXPECT_EQ(report.stretches[0].end, us(1.2));
  EXPECT_EQ(report.stretches[0].packets, 7);
  EXPECT_GE(report.stretches[0].ssim.value_or(0), 0.98);
  EXPECT_FALSE(report.stretches[1].isEncoded);
  EXPECT_EQ(report.stretches[1].start, us(1.2));
  EXPECT_LE(encodedPictures(report), 7 + 3);
  EXPECT_THAT(report.report.encoded, IsEmpty());
  EXPECT_GE(report.seams, 1);
  EXPECT_GT(report.equalPictures, 0);
}

TEST_F(Cut, AConstantRateStaysOneRunOfDurations) {
  cutAndCompare("cut.mp4", "out.mp4", {{0.9, 2.1}, {3.1, 5.5}});
  const auto packets =
      ffprobeJson(folder_ / "out.mp4", {"-select_streams", "v:0", "-show_packets"})["packets"];
  ASSERT_THAT(packets, SizeIs(30 + 60));
  for (const auto& packet : packets) EXPECT_EQ(packet["duration_time"], "0.040000");
  EXPECT_NEAR(startOf(folder_ / "out.mp4"), 0, 1e-6);
}

TEST_F(Cut, TakesEveryFormOfH264) {
  for (const char* input :
       {"cut10.mp4", "cut-fields.mp4", "cut-vfr.mkv", "cut.ts", "cut-baseline.mov"}) {
    SCOPED_TRACE(input);
    const std::string extension = std::filesystem::path(input).extension().string();
    const CutReport report = cutAndCompare(input, "out" + extension, {{0.5, 2.9}, {3.3, 4.4}});
    EXPECT_GT(encodedPictures(report), 0);
    EXPECT_LT(encodedPictures(report), 60);
  }
}

TEST_F(Cut, TakesCodecsThatBeginAnewWithKeyPictures) {
  for (const char* input : {"cut-hevc.mp4", "cut-hevc10.mkv", "cut-hevc.ts", "cut-mpeg2.ts",
                            "cut-mpeg2.mkv", "cut-vp9.webm", "cut-av1.mkv"}) {
    SCOPED_TRACE(input);
    const std::string extension = std::filesystem::path(input).extension().string();
    const CutReport report = cutAndCompare(input, "out" + extension, {{0.5, 2.9}, {3.3, 4.4}});
    EXPECT_GT(encodedPictures(report), 0);
    EXPECT_LT(encodedPictures(report), 65);
    EXPECT_THAT(report.report.encoded, IsEmpty());
  }
}

// A copy may begin with a key picture to which others, that are shown before it, refer.
TEST_F(Cut, OpenGroupsFollowOnEachOther) {
  const CutReport report = cutAndCompare("cut-hevc.mp4", "out.mp4", {{1.2, 2.4}, {3.6, 6}});
  EXPECT_EQ(report.stretches[0].isEncoded, false);
  EXPECT_LE(encodedPictures(report), 4);
}

TEST_F(Cut, PicturesThatNeedNoOthersAreAllCopied) {
  const CutReport report = cutAndCompare("cut-intra.mov", "out.mov", {{0.5, 2.9}, {3.3, 4.4}});
  EXPECT_EQ(encodedPictures(report), 0);
}

TEST_F(Cut, WhatCannotBeMixedIsEncodedAndToldSo) {
  const CutReport report = cutAndCompare("cut-mpeg4.mp4", "out.mp4", {{0.5, 2.9}});
  EXPECT_EQ(encodedPictures(report), 60);
  ASSERT_THAT(report.report.encoded, SizeIs(1));
  EXPECT_THAT(report.report.encoded[0], HasSubstr("all pictures: nothing can be encoded among"));
}

// An encoder would leave it out, and no decoder would tell.
TEST_F(Cut, AlphaBesideThePicturesIsNeverLost) {
  KESTREL_NEED_MEDIA("alpha-vp9-vorbis.webm");
  CutSettings settings{.input = mediaFile("alpha-vp9-vorbis.webm").string(),
                       .output = (folder_ / "out.webm").string(),
                       .keep = {{us(1), us(2)}}};
  EXPECT_THROW(cut(settings), Failure);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  settings.accuracy = CutSettings::Accuracy::kKey;
  EXPECT_EQ(encodedPictures(cut(settings)), 0);
}

TEST_F(Cut, ByKeyPicturesNothingIsEncoded) {
  const auto result = folder_ / "out.mp4";
  const CutReport report = cut({.input = fixture("cut.mp4").string(),
                                .output = result.string(),
                                .keep = {{us(1.5), us(2.0)}},
                                .accuracy = CutSettings::Accuracy::kKey});
  EXPECT_EQ(encodedPictures(report), 0);
  EXPECT_EQ(report.stretches[0].start, us(1.2));
  EXPECT_GE(report.stretches[0].end, us(2.0));
  EXPECT_LE(report.stretches[0].end, us(2.4));
}

TEST_F(Cut, DropIsTheOtherSideOfKeep) {
  const CutReport report = cut({.input = fixture("cut.mp4").string(),
                                .output = (folder_ / "out.mp4").string(),
                                .drop = {{0, us(1.2)}, {us(2.4), us(3.6)}}});
  EXPECT_THAT(picturesOf(folder_ / "out.mp4", false), SizeIs(30 + 60));
  EXPECT_EQ(encodedPictures(report), 0);
}

/// What ffmpeg decodes of cut.mp4 in the spans that were cut.
std::vector<float> expectedSound(const CutReport& report) {
  const std::vector<float> source = soundOf(fixture("cut.mp4"));
  std::vector<float> wanted;
  for (const CutStretch& stretch : report.stretches) {
    if (stretch.kind != "audio") continue;
    const auto at = [](int64_t time) { return std::llround(static_cast<double>(time) * 0.0441); };
    wanted.insert(wanted.end(), source.begin() + at(stretch.start),
                  source.begin() + at(stretch.end));
  }
  return wanted;
}

TEST_F(Cut, CopiedSoundIsTheSourcesToTheSample) {
  constexpr float kNoise = 1e-4F;  // that the decoder puts in, whatever it decoded before
  const CutReport report = cutAndCompare("cut.mp4", "out.mp4", {{0.9, 4.2}});
  const auto& last = report.stretches.back();
  ASSERT_EQ(last.kind, "audio");
  EXPECT_FALSE(last.isEncoded);
  EXPECT_EQ(last.start, us(0.92));
  const auto wanted = expectedSound(report);
  const auto made = soundOf(folder_ / "out.mp4");
  ASSERT_GE(made.size(), wanted.size());
  for (size_t i = 0; i < wanted.size(); ++i) ASSERT_NEAR(made[i], wanted[i], kNoise) << i;
  EXPECT_LT(made.size() - wanted.size(), 1024);  // the last packet's, which the edit list cuts off
}

/// The greatest step between two samples around a place.
float stepAt(const std::vector<float>& sound, size_t place) {
  float step = 0;
  for (size_t i = place - 100; i < place + 100; ++i)
    step = std::max(step, std::abs(sound[i + 1] - sound[i]));
  return step;
}

TEST_F(Cut, SoundOfSeveralSpansHasNoClickAndNoDrift) {
  const CutReport report = cutAndCompare("cut.mp4", "out.mp4", {{0.9, 2.1}, {3.13, 5.5}});
  EXPECT_THAT(report.report.encoded, testing::Contains(HasSubstr("packets of several spans")));
  const auto wanted = expectedSound(report);
  const auto made = soundOf(folder_ / "out.mp4");
  ASSERT_GE(made.size(), wanted.size());
  const auto seam = static_cast<size_t>(std::llround(1.2 * 44100));
  EXPECT_LE(stepAt(made, seam), stepAt(wanted, seam) * 1.05F);
  double error = 0;
  for (size_t i = wanted.size() - 4410; i < wanted.size() - 1024; ++i)
    error = std::max(error, static_cast<double>(std::abs(made[i] - wanted[i])));
  EXPECT_LT(error, 0.01);  // of a tone that a sample's drift would change by 0.0078
}

TEST_F(Cut, SamplesAreCutWithoutLoss) {
  const CutReport report = cutAndCompare("cut-intra.mov", "out.mov", {{0.9, 2.1}, {3.13, 5.5}});
  const auto source = soundOf(fixture("cut-intra.mov"));
  const auto made = soundOf(folder_ / "out.mov");
  std::vector<float> wanted(source.begin() + 40572, source.begin() + 40572 + 52920);
  wanted.insert(wanted.end(), source.begin() + 139356, source.begin() + 139356 + 104076);
  EXPECT_EQ(made, wanted);
}

TEST_F(Cut, ChaptersAndTagsGoAlong) {
  const auto source = fixture("av-tags.mp4");
  cut({.input = source.string(),
       .output = (folder_ / "out.mkv").string(),
       .keep = {{us(0.5), us(1.5)}}});
  const auto chapters = ffprobeJson(folder_ / "out.mkv")["chapters"];
  ASSERT_THAT(chapters, testing::Not(IsEmpty()));
  for (const auto& chapter : chapters) {
    EXPECT_GE(std::stod(chapter["start_time"].get<std::string>()), 0);
    EXPECT_LE(std::stod(chapter["end_time"].get<std::string>()), 1.1);
  }
}

TEST_F(Cut, SubtitlesAreCutAtTheBorders) {
  const auto source = fixture("av-tracks.mkv");
  cut({.input = source.string(),
       .output = (folder_ / "out.mkv").string(),
       .keep = {{us(0.6), us(1.4)}}});
  const auto packets =
      ffprobeJson(folder_ / "out.mkv", {"-select_streams", "s:0", "-show_packets"})["packets"];
  for (const auto& packet : packets) {
    const double time = std::stod(packet["pts_time"].get<std::string>());
    EXPECT_GE(time, 0);
    EXPECT_LE(time + std::stod(packet["duration_time"].get<std::string>()), 0.9);
  }
}

TEST_F(Cut, AnInterruptLeavesNothing) {
  Events events;
  events.interrupt = [] { return true; };
  const CutReport report = cut({.input = fixture("cut.mp4").string(),
                                .output = (folder_ / "out.mp4").string(),
                                .keep = {{0, us(1)}}},
                               events);
  EXPECT_EQ(report.report.outcome, Report::Outcome::kInterrupted);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(Cut, RefusesWhatCannotBeMeant) {
  const auto refused = [&](CutSettings settings) {
    settings.input = fixture("cut.mp4").string();
    settings.output = (folder_ / "out.mp4").string();
    try {
      cut(settings);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
      return failure.subject();
    }
    return std::string();
  };
  EXPECT_EQ(refused({}), "keep");
  EXPECT_EQ(refused({.keep = {{0, 10}}, .drop = {{20, 30}}}), "keep");
  EXPECT_EQ(refused({.keep = {{20, 10}}}), "keep");
  EXPECT_EQ(refused({.keep = {{0, 20}, {10, 30}}}), "keep");
  EXPECT_EQ(refused({.keep = {{us(50), us(60)}}}), "keep");
  EXPECT_EQ(refused({.drop = {{0, {}}, {10, 30}}}), "drop");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

/// How many random cuts are made; each takes a fraction of a second.
int randomCuts() {
  const char* const count = std::getenv("KESTREL_RANDOM_CUTS");
  return count ? std::atoi(count) : 16;
}

TEST_F(Cut, RandomCutsHoldExactlyWhatWasAskedFor) {
  struct Row {
    const char* input;
    const char* output;
  };
  constexpr Row kRows[] = {
      {"cut.mp4", "out.mp4"},          {"cut.mp4", "out.mkv"},       {"cut10.mp4", "out.mov"},
      {"cut-vfr.mkv", "out.mkv"},      {"cut.ts", "out.ts"},         {"cut-fields.mp4", "out.mp4"},
      {"cut-baseline.mov", "out.mov"}, {"cut.ts", "out.mp4"},        {"cut-hevc.mp4", "out.mp4"},
      {"cut-hevc10.mkv", "out.mkv"},   {"cut-hevc.ts", "out.ts"},    {"cut-mpeg2.ts", "out.ts"},
      {"cut-mpeg2.mkv", "out.mkv"},    {"cut-vp9.webm", "out.webm"}, {"cut-av1.mkv", "out.mkv"},
      {"cut-av1.mkv", "out.mp4"}};
  std::mt19937 random(20);
  for (int i = 0; i < randomCuts(); ++i) {
    const Row& row = kRows[static_cast<size_t>(i) % std::size(kRows)];
    std::vector<double> times;
    for (auto n = 2 * (1 + random() % 3); n > 0; --n)
      times.push_back(static_cast<double>(random() % 6000) / 1000);
    std::ranges::sort(times);
    std::vector<std::pair<double, double>> spans;
    for (size_t k = 0; k + 1 < times.size(); k += 2)
      if (times[k + 1] - times[k] > 0.1) spans.emplace_back(times[k], times[k + 1]);
    if (spans.empty()) continue;
    SCOPED_TRACE(std::string(row.input) + " to " + row.output + ", cut " + std::to_string(i));
    const CutReport report = cutAndCompare(row.input, row.output, spans);
    for (const CutStretch& stretch : report.stretches)
      EXPECT_TRUE(stretch.kind != "video" || !stretch.isEncoded || stretch.packets <= 30);
    if (HasFailure()) break;
  }
}

}  // namespace
}  // namespace kestrel::test
