#include "tests/support/Peer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// The answers that are kept in a folder.
std::vector<fs::path> answersIn(const fs::path& folder) {
  std::error_code none;
  const fs::directory_iterator files(folder / "answers", none);
  return {begin(files), end(files)};
}

std::string streamsOf(const fs::path& file) {
  return runPeer({"ffprobe", "-v", "error", "-show_entries", "format=nb_streams", "-of", "csv=p=0",
                  file.string()})
      .out;
}

class PeerTest : public testing::Test {
 protected:
  PeerTest() : both_(fixture("av25.mp4")), pictures_(fixture("video-only.mp4")) {
    setenv("KESTREL_FIXTURE_DIR", folder_.path().c_str(), 1);
  }
  ~PeerTest() override { unsetenv("KESTREL_FIXTURE_DIR"); }

  const TempDir folder_;
  const fs::path both_;
  const fs::path pictures_;
};

TEST_F(PeerTest, AnswersAreKeptUntilTheFileChanges) {
  const fs::path file = folder_ / "a.mp4";
  fs::copy_file(both_, file);
  EXPECT_EQ(streamsOf(file), "2\n");
  ASSERT_EQ(answersIn(folder_.path()).size(), 1u);
  std::ofstream(answersIn(folder_.path()).front(), std::ios::app) << "kept\n";
  EXPECT_EQ(streamsOf(file), "2\nkept\n");

  fs::copy_file(pictures_, file, fs::copy_options::overwrite_existing);
  EXPECT_EQ(streamsOf(file), "1\n");
}

TEST_F(PeerTest, WhatIsSaidOfOtherFilesIsNotKept) {
  const TempDir other;
  const fs::path file = other / "a.mp4";
  fs::copy_file(both_, file);
  EXPECT_EQ(streamsOf(file), "2\n");
  EXPECT_TRUE(answersIn(folder_.path()).empty());
}

TEST_F(PeerTest, FilesThatAPeerWritesAreWrittenEachTime) {
  const fs::path file = folder_ / "a.mp4";
  const fs::path made = folder_ / "b.mp4";
  fs::copy_file(both_, file);
  for (int i = 0; i < 2; ++i) {
    fs::remove(made);
    runPeer({"ffmpeg", "-v", "error", "-i", file.string(), "-c", "copy", made.string()});
    EXPECT_TRUE(fs::exists(made));
  }
  EXPECT_TRUE(answersIn(folder_.path()).empty());
}

}  // namespace
}  // namespace kestrel::test
