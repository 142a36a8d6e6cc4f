#include <gmock/gmock.h>
#include <kestrel/Bundle.h>
#include <kestrel/MovieAudioTaskExtractWave.h>
#include <kestrel/Pasteboard.h>
#include <kestrel/Task.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

class MovieAudioTaskExtractWaveTest : public testing::Test {
 protected:
  MovieAudioTaskExtractWaveTest() {
    setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
    setenv("TMPDIR", temporary_.path().c_str(), 1);
  }
  ~MovieAudioTaskExtractWaveTest() override {
    unsetenv("XDG_RUNTIME_DIR");
    unsetenv("TMPDIR");
  }

  static fs::path helper() { return Bundle::mainBundle().siblingPath("SamplePointsTask"); }

  /// Puts a program beside this one that does what the script says.
  static void install(const std::string& script) {
    fs::remove(helper());
    std::ofstream(helper()) << "#!/bin/sh\n" << script;
    fs::permissions(helper(), fs::perms::owner_all);
  }

  std::string told() const {
    std::ostringstream text;
    text << std::ifstream(told_).rdbuf();
    return text.str();
  }

  TempDir runtime_, temporary_, folder_;
  const fs::path told_ = folder_ / "told";
  const fs::path list_ = folder_ / "list";
  MovieAudioTaskExtractWave wave_;
};

TEST_F(MovieAudioTaskExtractWaveTest, ProgressIsSharedByAllObjects) {
  EXPECT_EQ(wave_.progress(), 0);
  wave_.setProgress(0.25);
  EXPECT_EQ(MovieAudioTaskExtractWave().progress(), 0.25);
  auto board = Pasteboard::pasteboardWithName("SamplePointsTask");
  EXPECT_EQ(board.stringForType("SamplePointsTask"), "0.250000");
  board.replaceContents("nonsense", "SamplePointsTask");
  EXPECT_EQ(wave_.progress(), 0);
}

TEST_F(MovieAudioTaskExtractWaveTest, IsFinishedBeforeAnyCall) {
  EXPECT_TRUE(wave_.isFinished());
  EXPECT_EQ(wave_.task(), nullptr);
  wave_.cancel();
}

// One test, because all of it is about the one file beside this program.
TEST_F(MovieAudioTaskExtractWaveTest, HasTheHelperBesideTheProgramDoTheWork) {
  fs::remove(helper());
  wave_.setProgress(0.5);
  EXPECT_THROW(wave_.samplePointsFromPath("a.mp4"), TaskError);
  EXPECT_TRUE(wave_.isFinished());
  EXPECT_EQ(wave_.progress(), 0);

  // What the helper is given.
  const std::string tell = "printf '%s|' $# \"$1\" \"$3\" > '" + told_.string() + "'\n";
  install(tell);
  EXPECT_EQ(wave_.samplePointsFromPath("a b.mp4"), std::nullopt);
  EXPECT_EQ(told(), "2|a b.mp4||");
  EXPECT_EQ(wave_.samplePointsFromPath("a.mp4", {{1, 3}}), std::nullopt);
  EXPECT_EQ(told(), "3|a.mp4|1-3|");

  // What it leaves.
  const auto leave = [&](const PropertyList& list) {
    list.writeToFile(list_.string());
    install("cp '" + list_.string() + "' \"$2\"\n");
    return wave_.samplePointsFromPath("a.mp4");
  };
  EXPECT_EQ(leave(PropertyList::Dictionary{{"sample", PropertyList::Array{1, 2}}}),
            PropertyList(PropertyList::Array{1, 2}));
  EXPECT_EQ(leave(PropertyList::Dictionary{{"other", 1}}), std::nullopt);
  EXPECT_EQ(leave(PropertyList::Array{}), std::nullopt);
  install("echo damaged > \"$2\"\n");
  EXPECT_EQ(wave_.samplePointsFromPath("a.mp4"), std::nullopt);
  EXPECT_TRUE(fs::is_empty(temporary_.path()));

  // An extractor that is still held is ended first.
  const auto held = std::make_shared<Task>();
  held->setLaunchPath("/bin/sleep");
  held->setArguments({"1000"});
  held->launch();
  wave_.setTask(held);
  install("exit 0\n");
  EXPECT_EQ(wave_.samplePointsFromPath("a.mp4"), std::nullopt);
  held->waitUntilExit();
  EXPECT_EQ(held->terminationStatus(), 128 + SIGTERM);
  EXPECT_TRUE(wave_.isFinished());

  // Cancelled from another thread.
  install("exec sleep 1000\n");
  std::thread other([this] {
    while (wave_.isFinished()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    wave_.cancel();
  });
  EXPECT_EQ(wave_.samplePointsFromPath("a.mp4"), std::nullopt);
  other.join();
  EXPECT_TRUE(wave_.isFinished());
  fs::remove(helper());
}

}  // namespace
}  // namespace kestrel::test
