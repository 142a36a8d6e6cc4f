#include <kestrel/convert/Batch.h>

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Outcome = BatchResult::Outcome;

std::string refusal(const std::function<void()>& work, Failure::Kind kind) {
  try {
    work();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), kind) << failure.what();
    return failure.what();
  }
  return "nothing was thrown";
}

/// A folder "in" with movies, and one "out" that is not there yet.
class BatchTest : public testing::Test {
 protected:
  BatchTest() { fs::create_directories(folder_ / "in/deep"); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  void put(const std::string& source, const std::string& name) const {
    fs::copy_file(fixture(source), folder_ / name);
  }

  BatchSettings settings() const {
    BatchSettings settings{.inputs = {path("in")}, .folder = path("out"), .extension = "mkv"};
    settings.conversion.video = StreamAction::kCopy;
    settings.conversion.audio = StreamAction::kCopy;
    return settings;
  }

  const TempDir folder_;
};

TEST_F(BatchTest, OfAFolderTakesWhatOpensAsAMovieOrSound) {
  put("av25.mp4", "in/b.mp4");
  put("av25.mp4", "in/no-extension");
  put("av25.mp4", "in/.hidden.mp4");
  put("av25.mp4", "in/deep/c.mp4");
  put("subtitles.srt", "in/texts.srt");
  std::ofstream(folder_ / "in/notes.txt") << "nothing to see\n";
  std::ofstream(folder_ / "in/false.mp4") << "no movie\n";
  BatchSettings settings = this->settings();
  // Whoever calls a file a movie misses it.
  EXPECT_THAT(Batch(settings).jobs(),
              ElementsAre(BatchJob{path("in/b.mp4"), path("out/b.mkv")},
                          BatchJob{path("in/false.mp4"), path("out/false.mkv")},
                          BatchJob{path("in/no-extension"), path("out/no-extension.mkv")}));
  settings.recursive = true;
  settings.folder = path("in/out");
  EXPECT_THAT(Batch(settings).jobs(),
              ElementsAre(BatchJob{path("in/b.mp4"), path("in/out/b.mkv")},
                          BatchJob{path("in/deep/c.mp4"), path("in/out/deep/c.mkv")},
                          BatchJob{path("in/false.mp4"), path("in/out/false.mkv")},
                          BatchJob{path("in/no-extension"), path("in/out/no-extension.mkv")}));
}

TEST_F(BatchTest, ConvertsEachAndTellsOfIt) {
  put("av25.mp4", "in/a.mp4");
  put("av-tracks.mkv", "in/b.mkv");
  BatchSettings settings = this->settings();
  settings.extension = {};
  settings.name = "{number}-{stem}-copy.{ext}";
  settings.jobs = 2;
  std::atomic<int> begun{0};
  std::atomic<int> done{0};
  std::atomic<int> steps{0};
  const auto results = Batch(settings).run({.started = [&](size_t) { ++begun; },
                                            .progress = [&](size_t, const Progress&) { ++steps; },
                                            .ended = [&](size_t, const BatchResult&) { ++done; }});
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(begun, 2);
  EXPECT_EQ(done, 2);
  EXPECT_GT(steps, 2);
  EXPECT_EQ(results[0].outcome, Outcome::kDone);
  EXPECT_EQ(results[0].job.output, path("out/1-a-copy.mp4"));
  EXPECT_EQ(results[0].effort.pictures, 50);
  EXPECT_NEAR(results[0].effort.length, 2, 0.1);
  EXPECT_EQ(results[0].effort.bytesRead, fs::file_size(path("in/a.mp4")));
  EXPECT_EQ(results[0].effort.bytesWritten, fs::file_size(path("out/1-a-copy.mp4")));
  EXPECT_EQ(ffprobeJson(path("out/2-b-copy.mkv"))["streams"].size(), 4u);
}

TEST_F(BatchTest, WhatFailsLeavesTheOthersAlone) {
  put("av25.mp4", "in/a.mp4");
  BatchSettings settings = this->settings();
  settings.inputs = {path("in/gone.mp4"), path("in/a.mp4")};
  const auto results = Batch(settings).run();
  EXPECT_EQ(results[0].outcome, Outcome::kFailed);
  ASSERT_TRUE(results[0].failure);
  EXPECT_THAT(results[0].failure->what(), HasSubstr("No such file"));
  EXPECT_EQ(results[1].outcome, Outcome::kDone);
}

TEST_F(BatchTest, AMovieOfAFolderThatCannotBeReadFails) {
  put("av25.mp4", "in/a.mp4");
  std::ofstream(folder_ / "in/false.MOV") << "no movie\n";
  BatchSettings settings = this->settings();
  settings.conversion.video = settings.conversion.audio = StreamAction::kCopy;
  const auto results = Batch(settings).run();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0].outcome, Outcome::kDone);
  EXPECT_EQ(results[1].outcome, Outcome::kFailed);
  ASSERT_TRUE(results[1].failure);
  EXPECT_THAT(results[1].failure->what(), HasSubstr("false.MOV"));
}

TEST_F(BatchTest, WhatIsThereIsRefusedOrSkipped) {
  put("av25.mp4", "in/a.mp4");
  put("av25.mp4", "in/b.mp4");
  fs::create_directory(folder_ / "out");
  std::ofstream(folder_ / "out/a.mkv") << "old";
  BatchSettings settings = this->settings();
  EXPECT_EQ(refusal([&] { Batch{settings}; }, Failure::Kind::kExists),
            "'" + path("out/a.mkv") + "' exists");
  settings.skipsExisting = true;
  const auto results = Batch(settings).run();
  EXPECT_EQ(results[0].outcome, Outcome::kSkipped);
  EXPECT_EQ(readBytes(folder_ / "out/a.mkv"), "old");
  EXPECT_EQ(results[1].outcome, Outcome::kDone);
}

TEST_F(BatchTest, NoResultIsMadeTwiceOrOverAnInput) {
  put("av25.mp4", "in/a.mp4");
  put("av25.mp4", "in/a.mov");
  BatchSettings settings = this->settings();
  EXPECT_EQ(refusal([&] { Batch{settings}; }, Failure::Kind::kSettings),
            "'" + path("in/a.mov") + "' and '" + path("in/a.mp4") + "' would both become '" +
                path("out/a.mkv") + "'");
  settings.extension = "mp4";
  settings.inputs = {path("in/a.mp4")};
  settings.folder = path("out/../in/");
  settings.conversion.replaces = true;
  EXPECT_THAT(refusal([&] { Batch{settings}; }, Failure::Kind::kOutput),
              HasSubstr("is an input itself"));
}

TEST_F(BatchTest, AnInterruptEndsAllAndLeavesNothing) {
  for (const char* name : {"in/a.mp4", "in/b.mp4", "in/c.mp4"}) put("av25.mp4", name);
  BatchSettings settings = this->settings();
  settings.conversion = {};
  std::atomic<bool> isEnded{false};
  const auto results =
      Batch(settings).run({.interrupt = [&] { return isEnded.load(); },
                           .progress = [&](size_t, const Progress&) { isEnded = true; }});
  for (const BatchResult& result : results) EXPECT_EQ(result.outcome, Outcome::kInterrupted);
  EXPECT_TRUE(fs::is_empty(folder_ / "out"));
}

TEST_F(BatchTest, WhatAFunctionThrowsArrives) {
  put("av25.mp4", "in/a.mp4");
  const Batch batch(settings());
  EXPECT_THROW(batch.run({.started = [](size_t) { throw std::out_of_range("no"); }}),
               std::out_of_range);
}

TEST_F(BatchTest, WrongSettingsAreRefused) {
  put("av25.mp4", "in/a.mp4");
  put("av25.mp4", "in/deep/plain");
  const auto refused = [&](auto change) {
    BatchSettings settings = this->settings();
    change(settings);
    return refusal([&] { Batch{settings}; }, Failure::Kind::kSettings);
  };
  EXPECT_THAT(refused([](auto& s) { s.name = "{title}.{ext}"; }),
              HasSubstr("is of other words than {stem}, {ext}, {number}"));
  EXPECT_THAT(refused([](auto& s) { s.name = "{stem"; }), HasSubstr("is of other words"));
  EXPECT_THAT(refused([](auto& s) { s.name = "a/{stem}"; }), HasSubstr("is no name of a file"));
  EXPECT_THAT(refused([](auto& s) { s.jobs = 0; }), HasSubstr("jobs"));
  EXPECT_THAT(refused([](auto& s) { s.inputs.clear(); }), HasSubstr("nothing to convert"));
  EXPECT_THAT(refused([](auto& s) { s.conversion.volume = -1; }), HasSubstr("volume"));
  EXPECT_THAT(refused([&](auto& s) { s.inputs = {path("in/deep/plain")}, s.extension = ""; }),
              HasSubstr("has no extension"));
}

}  // namespace
}  // namespace kestrel::test
