#include <gmock/gmock.h>
#include <kestrel/convert/Check.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using std::filesystem::path;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// Checks files that ffmpeg makes with one fault each, of which it is known when it begins and
/// ends.
class CheckTest : public testing::Test {
 protected:
  path made(const std::string& name, const std::vector<std::string>& options) const {
    const path file = folder_ / name;
    std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(file.string());
    const RunResult result = run(command);
    EXPECT_EQ(result.status, 0) << result.err;
    return file;
  }

  /// Moving pictures, through a filter.
  path pictures(const std::string& name, const std::string& filter,
                std::vector<std::string> options = {}) const {
    std::vector<std::string> all{
        "-f",
        "lavfi",
        "-i",
        "testsrc2=size=192x108:rate=25:duration=6" + (filter.empty() ? "" : "," + filter),
        "-c:v",
        "libx264",
        "-preset",
        "veryfast",
        "-pix_fmt",
        "yuv420p"};
    all.insert(all.end(), options.begin(), options.end());
    return made(name, all);
  }

  /// Sound alone.
  path sound(const std::string& name, const std::string& source) const {
    return made(name, {"-f", "lavfi", "-i", source, "-c:a", "pcm_s16le"});
  }

  static CheckResult checked(const path& file) { return check({.input = file.string()}); }

  static void expectOne(const path& file, CheckKind kind, double start, double end,
                        bool isFault = true) {
    const CheckResult result = checked(file);
    ASSERT_THAT(result.findings, SizeIs(1)) << file;
    const CheckFinding& found = result.findings.front();
    EXPECT_EQ(found.kind, kind) << found.sentence;
    EXPECT_NEAR(static_cast<double>(found.start) / 1e6, start, 0.05) << found.sentence;
    EXPECT_NEAR(static_cast<double>(found.end) / 1e6, end, 0.05) << found.sentence;
    EXPECT_EQ(found.isFault, isFault);
    EXPECT_EQ(result.report.isWhole(), !isFault);
    EXPECT_THAT(result.report.findings, SizeIs(isFault ? 1 : 0));
  }

  const TempDir folder_;
};

TEST_F(CheckTest, NothingIsFoundWhereNothingIsWrong) {
  for (const int cpus : {1, 2, 16}) {
    const ForcedCpuCount forced(cpus);
    for (const char* name : {"moving25.mp4", "av25.mp4"}) {
      const CheckResult result = checked(fixture(name));
      EXPECT_THAT(result.findings, IsEmpty()) << name << ": " << result.findings.front().sentence;
      EXPECT_TRUE(result.report.isWhole());
      EXPECT_GT(result.pictures, 0);
    }
  }
  EXPECT_EQ(checked(fixture("moving25.mp4")).pictures, 100);
  EXPECT_EQ(checked(fixture("moving25.mp4")).length, 4'000'000);
}

TEST_F(CheckTest, BlackAndStillPicturesAreTold) {
  expectOne(pictures("black.mp4", "drawbox=color=black:t=fill:enable='between(t,1,3.99)'"),
            CheckKind::kBlack, 1, 4, false);
  expectOne(pictures("still.mp4", "trim=end=2,tpad=stop_mode=clone:stop_duration=3", {"-crf", "1"}),
            CheckKind::kFrozen, 1.96, 5, false);
  // Too short to be told of.
  EXPECT_THAT(checked(pictures("short.mp4", "drawbox=color=black:t=fill:enable='between(t,1,2.5)'"))
                  .findings,
              IsEmpty());
}

TEST_F(CheckTest, SilenceIsTold) {
  expectOne(sound("silence.wav", "sine=frequency=440:duration=6,volume=0:enable='between(t,1,4)'"),
            CheckKind::kSilence, 1, 4, false);
}

TEST_F(CheckTest, ClippingIsFoundAndFullScaleIsNone) {
  expectOne(sound("clipped.wav",
                  "aevalsrc='clip((0.5+1.1*between(t,1,2))*sin(2*PI*440*t),-1,1)':s=48000:d=3"),
            CheckKind::kClipping, 1, 2);
  for (const char* hertz : {"40", "440", "5000"})
    EXPECT_THAT(checked(sound(std::string("full") + hertz + ".wav",
                              std::string("aevalsrc=0.9999*sin(2*PI*") + hertz + "*t):s=48000:d=2"))
                    .findings,
                IsEmpty())
        << hertz;
}

TEST_F(CheckTest, SoundThatIsMissingIsAGap) {
  expectOne(sound("gap.mkv", "sine=frequency=440:duration=5,aselect='not(between(t,2,2.99))'"),
            CheckKind::kGap, 2, 3);
}

TEST_F(CheckTest, TimesThatRunAwayFromTheSoundAreDrift) {
  // Six seconds of sound whose times say 6.3.
  const CheckResult result =
      checked(sound("drift.mkv", "sine=frequency=440:duration=6,asetpts=PTS*1.05"));
  ASSERT_THAT(result.findings, SizeIs(1));
  EXPECT_EQ(result.findings[0].kind, CheckKind::kDrift);
  EXPECT_THAT(result.findings[0].sentence, HasSubstr("shorter"));
  EXPECT_THAT(result.findings[0].sentence, testing::AnyOf(HasSubstr("0.3"), HasSubstr("0.29")));
}

TEST_F(CheckTest, AFileThatEndsEarlyDoesNotKeepItsPromise) {
  const path whole = pictures("whole.mp4", "", {"-movflags", "+faststart", "-g", "25"});
  const std::string bytes = readBytes(whole);
  const path cut = folder_ / "cut.mp4";
  writeBytes(cut, bytes.substr(0, bytes.size() / 2));
  const CheckResult result = checked(cut);
  EXPECT_FALSE(result.report.isWhole());
  const auto length = std::ranges::find(result.findings, CheckKind::kLength, &CheckFinding::kind);
  ASSERT_NE(length, result.findings.end());
  EXPECT_EQ(length->end, 6'000'000);
  EXPECT_EQ(length->start, result.length);
}

TEST_F(CheckTest, DamageIsFoundWhereItIs) {
  const path whole =
      made("whole.avi", {"-f", "lavfi", "-i", "testsrc2=size=192x108:rate=25:duration=6", "-c:v",
                         "mpeg4", "-q:v", "3", "-g", "10"});
  std::string bytes = readBytes(whole);
  // A few hundred bytes in the middle of six seconds of even pictures.
  for (size_t i = 0; i < 3000; i += 3) bytes[bytes.size() / 2 + i] ^= 0x55;
  const path damaged = folder_ / "damaged.avi";
  writeBytes(damaged, bytes);
  const CheckResult result = checked(damaged);
  ASSERT_THAT(result.findings, testing::Not(IsEmpty()));
  for (const CheckFinding& found : result.findings) {
    EXPECT_EQ(found.kind, CheckKind::kDamage) << found.sentence;
    EXPECT_NEAR(static_cast<double>(found.start) / 1e6, 3, 0.6) << found.sentence;
  }
  EXPECT_FALSE(result.report.isWhole());
}

TEST_F(CheckTest, MarksOfFieldsThatAreWrongAreFound) {
  expectOne(pictures("marked.mkv", "setfield=tff", {"-flags", "+ildct+ilme"}),
            CheckKind::kInterlacing, 0, 6);
  const path combed =
      made("combed.mkv",
           {"-f", "lavfi", "-i",
            "testsrc2=size=384x216:rate=50:duration=4,tinterlace=interleave_top,"
            "setfield=prog",
            "-c:v", "libx264", "-preset", "veryfast", "-crf", "10", "-pix_fmt", "yuv420p"});
  expectOne(combed, CheckKind::kInterlacing, 0, 4);
  // And right ones are not.
  const path right =
      made("right.mkv",
           {"-f", "lavfi", "-i",
            "testsrc2=size=384x216:rate=50:duration=4,tinterlace=interleave_top", "-c:v", "libx264",
            "-preset", "veryfast", "-crf", "10", "-pix_fmt", "yuv420p", "-flags", "+ildct+ilme"});
  EXPECT_THAT(checked(right).findings, IsEmpty());
}

TEST_F(CheckTest, MarksOfRangeThatAreWrongAreFound) {
  // A white box on black: 235 on 16.
  const std::vector<std::string> limited{
      "-f",       "lavfi",
      "-i",       "color=black:size=192x108:rate=25:duration=2",
      "-vf",      "drawbox=x=40:y=20:w=60:h=60:color=white:t=fill",
      "-c:v",     "libx264",
      "-pix_fmt", "yuv420p",
      "-bsf:v"};
  auto options = limited;
  options.emplace_back("h264_metadata=video_full_range_flag=1");
  const CheckResult asFull = checked(made("as-full.mkv", options));
  EXPECT_TRUE(std::ranges::count(asFull.findings, CheckKind::kRange, &CheckFinding::kind));
  options.back() = "h264_metadata=video_full_range_flag=0";
  const CheckResult right = checked(made("right.mkv", options));
  EXPECT_FALSE(std::ranges::count(right.findings, CheckKind::kRange, &CheckFinding::kind));
  options[5] += ",scale=out_range=full";
  const CheckResult asLimited = checked(made("as-limited.mkv", options));
  EXPECT_TRUE(std::ranges::count(asLimited.findings, CheckKind::kRange, &CheckFinding::kind));
}

TEST_F(CheckTest, MarksOfHdrThatAreWrongAreFound) {
  const path eight = pictures("eight.mkv", "",
                              {"-bsf:v",
                               "h264_metadata=transfer_characteristics=16:colour_primaries"
                               "=9:matrix_coefficients=9"});
  expectOne(eight, CheckKind::kHdr, 0, 6);
  const path light = made(
      "light.mkv",
      {"-f", "lavfi", "-i", "testsrc2=size=192x108:rate=25:duration=2", "-c:v", "libx265",
       "-preset", "ultrafast", "-pix_fmt", "yuv420p10le", "-color_trc", "bt709", "-x265-params",
       "log-level=none:max-cll=1000,400:master-display=G(13250,34500)B(7500,3000)R(34000,16000)"
       "WP(15635,16450)L(10000000,50)"});
  expectOne(light, CheckKind::kHdr, 0, 2);
}

TEST_F(CheckTest, WhatCannotBeCheckedIsAFailure) {
  const path text = folder_ / "text.mp4";
  writeBytes(text, "no movie");
  EXPECT_EQ(failureOf([&] { checked(text); }).kind(), Failure::Kind::kInput);
  EXPECT_EQ(failureOf([&] { check({.input = "x", .black = 0}); }).subject(), "black");
  EXPECT_EQ(check({.input = fixture("av25.mp4").string()}, {.interrupt = [] { return true; }})
                .report.outcome,
            Report::Outcome::kInterrupted);
}

}  // namespace
}  // namespace kestrel::test
