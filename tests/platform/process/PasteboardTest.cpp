#include <gmock/gmock.h>
#include <kestrel/Pasteboard.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// Pasteboards of a session of its own.
class PasteboardTest : public testing::Test {
 protected:
  PasteboardTest() { setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1); }
  ~PasteboardTest() override { unsetenv("XDG_RUNTIME_DIR"); }

  static Pasteboard board(const std::string& name = "board") {
    return Pasteboard::pasteboardWithName(name);
  }

  TempDir runtime_;
};

TEST_F(PasteboardTest, IsEmptyAtFirst) { EXPECT_EQ(board().stringForType("a"), std::nullopt); }

TEST_F(PasteboardTest, TheSameNameMeansTheSameOne) {
  board().setStringForType("text", "a");
  EXPECT_EQ(board().stringForType("a"), "text");
  EXPECT_EQ(board("other").stringForType("a"), std::nullopt);
}

TEST_F(PasteboardTest, HoldsATextForEachType) {
  board().setStringForType("1", "a");
  board().setStringForType("2", "b");
  board().setStringForType("3", "a");
  EXPECT_EQ(board().stringForType("a"), "3");
  EXPECT_EQ(board().stringForType("b"), "2");
}

TEST_F(PasteboardTest, ClearingTakesAllTextsAway) {
  board().setStringForType("1", "a");
  board().clearContents();
  EXPECT_EQ(board().stringForType("a"), std::nullopt);
  board().setStringForType("1", "a");
  board().replaceContents("2", "b");
  EXPECT_EQ(board().stringForType("a"), std::nullopt);
  EXPECT_EQ(board().stringForType("b"), "2");
}

TEST_F(PasteboardTest, NamesAndTextsMayHoldAnything) {
  for (const std::string name : {"../up", "a/b", "", ".", "a_2fb", "Grüße"}) {
    EXPECT_EQ(board(name).stringForType("t"), std::nullopt) << name;
    board(name).setStringForType("Grüße \n" + name, "t");
    EXPECT_EQ(board(name).stringForType("t"), "Grüße \n" + name);
  }
}

TEST_F(PasteboardTest, NobodyElseMayEnterItsFolder) {
  board().setStringForType("1", "a");
  for (const auto& entry : fs::directory_iterator(runtime_.path()))
    EXPECT_EQ(entry.status().permissions(), fs::perms::owner_all);
}

TEST_F(PasteboardTest, AFolderThatOthersMayEnterIsNotUsed) {
  fs::create_directory(runtime_ / "kestrel-pasteboards");
  fs::permissions(runtime_ / "kestrel-pasteboards", fs::perms::all);
  const TempDir temporary;
  setenv("TMPDIR", temporary.path().c_str(), 1);
  board().setStringForType("1", "a");
  EXPECT_EQ(board().stringForType("a"), "1");
  EXPECT_TRUE(fs::is_empty(runtime_ / "kestrel-pasteboards"));
  fs::permissions(*fs::directory_iterator(temporary.path()), fs::perms::all);
  EXPECT_EQ(board().stringForType("a"), std::nullopt);
  unsetenv("TMPDIR");
}

TEST_F(PasteboardTest, WhatAnotherProcessSetsIsSeenHere) {
  const pid_t child = fork();
  if (child == 0) {
    board().setStringForType("from there", "a");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(board().stringForType("a"), "from there");
}

TEST_F(PasteboardTest, AReaderNeverSeesAnythingBetweenTwoTexts) {
  board().replaceContents("0", "a");
  std::thread writer([] {
    for (int i = 0; i < 300; ++i) board().replaceContents(std::string(1 + i * 10, 'x'), "a");
  });
  for (int i = 0; i < 300; ++i) {
    const auto text = board().stringForType("a");
    ASSERT_TRUE(text);
    ASSERT_TRUE(*text == "0" || text->find_first_not_of('x') == std::string::npos);
  }
  writer.join();
}

TEST_F(PasteboardTest, WritersOfDifferentTypesLoseNothing) {
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i)
    writers.emplace_back([i] {
      for (int n = 0; n < 50; ++n) board().setStringForType(std::to_string(n), std::to_string(i));
    });
  for (auto& writer : writers) writer.join();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(board().stringForType(std::to_string(i)), "49");
}

TEST_F(PasteboardTest, DamagedContentsAreNone) {
  board().setStringForType("1", "a");
  for (const auto& entry : fs::recursive_directory_iterator(runtime_.path()))
    if (entry.path().extension() == ".plist") std::ofstream(entry.path()) << "damaged";
  EXPECT_EQ(board().stringForType("a"), std::nullopt);
  board().setStringForType("2", "a");
  EXPECT_EQ(board().stringForType("a"), "2");
}

}  // namespace
}  // namespace kestrel::test
