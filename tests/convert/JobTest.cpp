#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Job.h>

#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class JobTest : public testing::Test {
 protected:
  JobTest() {
    settings_.folder = (dir_ / "job").string();
    settings_.input = fixture("cut.mp4").string();
    settings_.output = (dir_ / "out.mkv").string();
    settings_.stretch = 1.3;
    settings_.options = {{"video-codec", "ffv1"}};
  }

  Report made() {
    planJob(settings_);
    EXPECT_THAT(workJob(settings_.folder).poison(), IsEmpty());
    return assembleJob(settings_.folder);
  }

  std::string whole() {
    const std::string path =
        (dir_ / "whole").string() + fs::path(settings_.output).extension().string();
    ConversionSettings settings;
    applyOptions(settings_.options, settings);
    settings.input = settings_.input;
    settings.output = path;
    settings.replaces = true;
    Conversion(settings).run();
    return path;
  }

  /// Every picture and its time, and every other packet, as ffmpeg reads them.
  static std::string contentOf(const std::string& path) {
    return run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0:v", "-c:v", "rawvideo",
                "-fps_mode", "passthrough", "-f", "framemd5", "-"})
               .out +
           run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0", "-map", "-0:v", "-c",
                "copy", "-f", "framemd5", "-"})
               .out;
  }

  void expectTheSameAsUndivided(size_t parts) {
    made();
    EXPECT_THAT(jobStatus(settings_.folder).parts, SizeIs(parts));
    const std::string content = contentOf(settings_.output);
    EXPECT_THAT(content, HasSubstr("0, "));
    EXPECT_EQ(content, contentOf(whole()));
  }

  const TempDir dir_;
  JobSettings settings_;
};

TEST_F(JobTest, GivesWhatTheUndividedConversionGives) { expectTheSameAsUndivided(5); }

TEST_F(JobTest, PicturesKeepTheirOwnTimes) {
  settings_.input = fixture("cut-vfr.mkv").string();
  expectTheSameAsUndivided(4);
}

TEST_F(JobTest, PicturesAreBroughtToARate) {
  for (const char* rate : {"10", "60"}) {
    settings_.folder = (dir_ / rate).string();
    settings_.replaces = true;
    settings_.options = {{"video-codec", "ffv1"}, {"fps", rate}};
    expectTheSameAsUndivided(5);
  }
}

TEST_F(JobTest, ASpanIsConverted) {
  settings_.options.push_back({"start", "0.7"});
  settings_.options.push_back({"end", "5.1"});
  expectTheSameAsUndivided(4);
}

TEST_F(JobTest, FiltersSeeWhatLiesBeforeAPart) {
  for (const auto& [name, value] : ConversionOptions{{"deinterlace", "on"}, {"denoise", "light"}}) {
    settings_.folder = (dir_ / name).string();
    settings_.replaces = true;
    settings_.options = {{"video-codec", "ffv1"}, {name, value}};
    expectTheSameAsUndivided(5);
  }
}

TEST_F(JobTest, LooksAndSubtitlesAreDrawnAlike) {
  settings_.input = fixture("text.mkv").string();
  settings_.stretch = 1;
  settings_.options.push_back({"subtitle-track", "0"});
  settings_.options.push_back({"brightness", "0.1"});
  expectTheSameAsUndivided(2);
}

TEST_F(JobTest, SoundIsEncodedOnceWhole) {
  settings_.output = (dir_ / "out.mp4").string();
  settings_.options = {{"video-codec", "libx264"},
                       {"encoder-preset", "ultrafast"},
                       {"audio-codec", "aac"},
                       {"audio-bitrate", "64k"}};
  made();
  const auto sound = [](const std::string& path) {
    return run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0:a", "-c", "copy", "-f",
                "framemd5", "-"})
        .out;
  };
  const auto times = [](const std::string& path) {
    return run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts",
                "-of", "csv", path})
        .out;
  };
  const std::string undivided = whole();
  EXPECT_EQ(sound(settings_.output), sound(undivided));
  const auto sorted = [](const std::string& text) {
    std::multiset<std::string> lines;
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
      lines.insert(text.substr(at, text.find('\n', at) - at));
    return lines;
  };
  EXPECT_THAT(sorted(times(undivided)), SizeIs(150));
  EXPECT_EQ(sorted(times(settings_.output)), sorted(times(undivided)));
}

TEST_F(JobTest, APartIsMadeOnce) {
  planJob(settings_);
  workJob(settings_.folder);
  const auto stamp = fs::last_write_time(dir_ / "job/parts/0002.packets");
  workJob(settings_.folder);
  makeJobPart(settings_.folder, "0002");
  EXPECT_EQ(fs::last_write_time(dir_ / "job/parts/0002.packets"), stamp);
}

TEST_F(JobTest, WhatIsMissingIsMadeAndWhatIsDamagedIsFound) {
  planJob(settings_);
  workJob(settings_.folder);
  const fs::path part = dir_ / "job/parts/0002.packets";
  const std::string bytes = readBytes(part);
  std::string damaged = bytes;
  damaged[damaged.size() / 2] ^= 1;
  writeBytes(part, damaged);
  EXPECT_THAT(failureOf([&] { assembleJob(settings_.folder); }).what(),
              HasSubstr("damaged parts are to be made again: '0002'"));
  EXPECT_FALSE(fs::exists(settings_.output));
  EXPECT_FALSE(fs::exists(part));
  EXPECT_THAT(failureOf([&] { assembleJob(settings_.folder); }).what(),
              HasSubstr("1 of 5 parts are still to be made"));
  workJob(settings_.folder);
  EXPECT_EQ(readBytes(part).size() > 0, true);
  EXPECT_TRUE(assembleJob(settings_.folder).isWhole());
  EXPECT_TRUE(jobStatus(settings_.folder).isAssembled);
}

TEST_F(JobTest, AResumedConversionMendsWhatIsDamaged) {
  planJob(settings_);
  workJob(settings_.folder);
  const fs::path part = dir_ / "job/parts/0003.packets";
  std::string bytes = readBytes(part);
  bytes.replace(bytes.find("\"places\""), 8, "\"plazes\"");
  writeBytes(part, bytes);
  std::vector<std::string> notes;
  const Report report =
      convertResumably({.job = settings_, .workers = {.count = 1}},
                       {.note = [&](const std::string& note) { notes.push_back(note); }});
  EXPECT_TRUE(report.isWhole());
  EXPECT_THAT(notes, testing::Contains(HasSubstr("made again: '0003'")));
  EXPECT_FALSE(fs::exists(settings_.folder));
  EXPECT_EQ(contentOf(settings_.output), contentOf(whole()));
}

TEST_F(JobTest, WithoutAProgramThisProcessMakesTheParts) {
  planJob(settings_);
  const JobStatus status = workJobLocally(settings_.folder, {.count = 2});
  for (const JobPart& part : status.parts) EXPECT_EQ(part.state, JobPart::State::kDone);
}

TEST_F(JobTest, AProgramThatMakesNothingIsAFault) {
  settings_.stretch = 100;
  planJob(settings_);
  const auto poison = [&](const std::string& program) {
    return workJobLocally(settings_.folder, {.count = 1, .program = program}).poison();
  };
  auto parts = poison("/bin/false");
  ASSERT_THAT(parts, SizeIs(1));
  EXPECT_THAT(parts[0].problems, testing::ElementsAre("its process ended with status 1",
                                                      "its process ended with status 1",
                                                      "its process ended with status 1"));
  fs::remove_all(dir_ / "job/problems");
  fs::create_directory(dir_ / "job/problems");
  EXPECT_THAT(poison("/bin/true"), SizeIs(1));
  // Where nothing can be noted, each worker knows by itself when to end.
  fs::remove_all(dir_ / "job/problems");
  writeBytes(dir_ / "job/problems", "no folder");
  parts = poison("/bin/false");
  ASSERT_THAT(parts, SizeIs(1));
  EXPECT_THAT(parts[0].problems, SizeIs(3));
}

TEST_F(JobTest, WhateverAPartThrowsIsNoted) {
  planJob(settings_);
  makeJobPart(settings_.folder, "0002", "\xff");  // no text, which JSON could hold
  EXPECT_THAT(jobStatus(settings_.folder).parts[1].problems, SizeIs(1));
  // But not what the host throws.
  const Events events{.progress = [](const Progress&) { throw std::runtime_error("enough"); }};
  EXPECT_THROW(makeJobPart(settings_.folder, "0003", "", events), std::runtime_error);
  EXPECT_THAT(jobStatus(settings_.folder).parts[2].problems, IsEmpty());
}

TEST_F(JobTest, NumbersAreNoFiles) {
  const fs::path before = fs::current_path();
  fs::current_path(dir_.path());
  writeBytes(dir_ / "30", "no number");
  fs::copy(fixture("subtitles.srt"), dir_ / "a.srt");
  settings_.options = {{"video-codec", "libx264"}, {"crf", "30"}, {"subtitles", "a.srt"}};
  EXPECT_NO_THROW(planJob(settings_));
  fs::current_path(before);
  const std::string plan = readBytes(dir_ / "job/plan.json");
  EXPECT_THAT(plan, HasSubstr(fs::absolute(dir_ / "a.srt").string()));
  EXPECT_THAT(plan, testing::Not(HasSubstr((dir_ / "30").string())));
}

TEST_F(JobTest, AFolderOfSomethingElseIsKept) {
  fs::create_directories(dir_ / "job/parts");
  writeBytes(dir_ / "job/parts/mine.mov", "mine");
  EXPECT_EQ(failureOf([&] { planJob(settings_); }).kind(), Failure::Kind::kOutput);
  EXPECT_THAT(failureOf([&] { convertResumably({.job = settings_}); }).what(),
              HasSubstr("holds no job"));
  EXPECT_EQ(readBytes(dir_ / "job/parts/mine.mov"), "mine");
}

TEST_F(JobTest, APoisonedPartIsNamedByItsSpan) {
  planJob(settings_);
  int tries = 0;
  const JobStatus status = workJob(
      settings_.folder, {.makePart = [&](const std::string& part) -> std::optional<JobFailure> {
        if (part == "0003") return JobFailure{"try " + std::to_string(++tries)};
        makeJobPart(settings_.folder, part);
        return std::nullopt;
      }});
  EXPECT_EQ(tries, 3);
  ASSERT_THAT(status.poison(), SizeIs(1));
  EXPECT_THAT(status.poison()[0].problems, SizeIs(3));
  // The third begins with the key picture at 2.4 s, the fourth with that at 3.6 s.
  EXPECT_THAT(failureOf([&] { assembleJob(settings_.folder); }).what(),
              HasSubstr("the pictures from 0:02.400 to 0:03.600"));
}

TEST_F(JobTest, AnotherInputIsRefused) {
  settings_.input = (dir_ / "in.mp4").string();
  fs::copy(fixture("cut.mp4"), settings_.input);
  planJob(settings_);
  EXPECT_TRUE(isPlanned(settings_));
  std::string bytes = readBytes(settings_.input);
  bytes[bytes.size() / 2] ^= 1;
  writeBytes(settings_.input, bytes);
  EXPECT_THAT(failureOf([&] { workJob(settings_.folder); }).what(),
              HasSubstr("is not the file that was planned"));
  EXPECT_THAT(failureOf([&] { isPlanned(settings_); }).what(),
              HasSubstr("another content of the input"));
}

TEST_F(JobTest, AnotherPlanIsRefused) {
  planJob(settings_);
  JobSettings other = settings_;
  other.options.push_back({"fps", "10"});
  EXPECT_THAT(failureOf([&] { isPlanned(other); }).what(), HasSubstr("another options"));
  EXPECT_EQ(failureOf([&] { planJob(settings_); }).kind(), Failure::Kind::kExists);
  const fs::path plan = dir_ / "job/plan.json";
  std::string text = readBytes(plan);
  text.replace(text.find("ffv1"), 4, "h264");
  fs::remove(plan);
  writeBytes(plan, text);
  EXPECT_THAT(failureOf([&] { workJob(settings_.folder); }).what(),
              HasSubstr("is not as it was planned"));
}

TEST_F(JobTest, WhatIsFoundByTryingIsRefused) {
  for (const ConversionOption& option : ConversionOptions{
           {"video-bitrate", "500k"}, {"target-quality", "80"}, {"size-limit", "1M"}}) {
    settings_.options = {{"video-codec", "libx264"}, option};
    EXPECT_THAT(failureOf([&] { planJob(settings_); }).what(),
                HasSubstr("cannot be converted in parts"))
        << option.name;
  }
  EXPECT_FALSE(fs::exists(dir_ / "job"));
}

TEST_F(JobTest, AnInterruptedWorkerLosesNothing) {
  planJob(settings_);
  const auto isSecondBegun = [&] {
    for (const std::string& name : namesIn(dir_ / "job/partial"))
      if (name.starts_with("0002.")) return true;
    return false;
  };
  const Failure failure =
      failureOf([&] { workJob(settings_.folder, {}, {.interrupt = isSecondBegun}); });
  EXPECT_THAT(namesIn(dir_ / "job/parts"), testing::Contains("0001.packets"));
  EXPECT_EQ(failure.kind(), Failure::Kind::kInterrupted);
  EXPECT_THAT(namesIn(dir_ / "job/claims"), IsEmpty());
  workJob(settings_.folder);
  EXPECT_TRUE(assembleJob(settings_.folder).isWhole());
}

}  // namespace
}  // namespace kestrel::test
