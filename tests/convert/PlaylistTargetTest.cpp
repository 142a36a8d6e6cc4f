#include "convert/files/PlaylistTarget.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class PlaylistTargetTest : public testing::Test {
 protected:
  std::string path() const { return (place_ / "a.m3u8").string(); }

  /// Writes a playlist and its folder with one file of that name.
  void make(const std::string& name, bool replaces) const {
    PlaylistTarget target(path(), replaces, "");
    std::ofstream(fs::path(target.folder()) / name) << name;
    target.commit("#EXTM3U\n" + segmentFolderOf(path()) + "/" + name + "\n");
  }

  /// What claiming fails with.
  Failure::Kind refusal(bool replaces) const {
    return failureOf([&] { PlaylistTarget(path(), replaces, ""); }).kind();
  }

  const TempDir place_;
};

TEST_F(PlaylistTargetTest, AppearsWithItsFolder) {
  make("one", false);
  EXPECT_EQ(namesIn(place_.path()), (Names{"a.m3u8", "a.segments"}));
  EXPECT_EQ(namesIn(place_ / "a.segments"), Names{"one"});
  EXPECT_EQ(readBytes(path()), "#EXTM3U\na.segments/one\n");
}

// Whoever finds the playlist finds all that it names.
TEST_F(PlaylistTargetTest, TheFolderAppearsBeforeThePlaylist) {
  const int watch = inotify_init1(IN_NONBLOCK);
  ASSERT_GE(inotify_add_watch(watch, place_.path().c_str(), IN_MOVED_TO | IN_CREATE), 0);
  make("one", false);
  std::vector<std::string> appeared;
  alignas(inotify_event) char events[4096];
  const ssize_t size = read(watch, events, sizeof(events));
  close(watch);
  for (ssize_t at = 0; at < size;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
    const std::string name = event->name;
    if (name == "a.segments" || name == "a.m3u8") appeared.push_back(name);
    at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
  }
  EXPECT_EQ(appeared, (std::vector<std::string>{"a.segments", "a.m3u8"}));
}

TEST_F(PlaylistTargetTest, ReplacesAnOldOneWhole) {
  make("one", false);
  EXPECT_EQ(refusal(false), Failure::Kind::kExists);
  make("two", true);
  EXPECT_EQ(namesIn(place_.path()), (Names{"a.m3u8", "a.segments"}));
  EXPECT_EQ(namesIn(place_ / "a.segments"), Names{"two"});
}

TEST_F(PlaylistTargetTest, WithoutACommitLeavesWhatWasThere) {
  make("one", false);
  {
    const PlaylistTarget target(path(), true, "");
    std::ofstream(fs::path(target.folder()) / "two") << "two";
  }
  EXPECT_EQ(namesIn(place_.path()), (Names{"a.m3u8", "a.segments"}));
  EXPECT_EQ(namesIn(place_ / "a.segments"), Names{"one"});
}

// Whatever lies in a folder that no playlist names is somebody's own.
TEST_F(PlaylistTargetTest, DoesNotReplaceAFolderThatIsNotItsOwn) {
  fs::create_directory(place_ / "a.segments");
  std::ofstream(place_ / "a.segments" / "mine") << "mine";
  EXPECT_EQ(refusal(true), Failure::Kind::kExists);
  std::ofstream(path()) << "#EXTM3U\nelsewhere/1.ts\n";
  EXPECT_EQ(refusal(true), Failure::Kind::kExists);
  EXPECT_EQ(namesIn(place_ / "a.segments"), Names{"mine"});
}

TEST(PlaylistTarget, TheFolderHasANameThatAddressesKnow) {
  EXPECT_EQ(segmentFolderOf("/x/movie.m3u8"), "movie.segments");
  EXPECT_EQ(segmentFolderOf("My movie #1 (50%).m3u8"), "My-movie-1-50.segments");
  EXPECT_EQ(segmentFolderOf("\xe9\x9b\xbb.m3u8"), "movie.segments");
  EXPECT_EQ(segmentFolderOf("a_b-c~d.e.m3u8"), "a_b-c~d.e.segments");
}

}  // namespace
}  // namespace kestrel::test
