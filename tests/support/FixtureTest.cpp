#include "tests/support/Fixture.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/support/Ffprobe.h"
#include "tests/support/FixtureTable.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

FixtureTable tableOf(const std::string& text) {
  std::istringstream stream(text);
  return readFixtureTable(stream);
}

TEST(FixtureTable, BlankAtTheStartOfALineGoesOnWithTheArguments) {
  const auto table = tableOf("# said first\na.mp4: -i x\n  -c copy\n\nb.wav:\n\t-ac 2\n");
  EXPECT_EQ(table.size(), 2u);
  EXPECT_THAT(table.at("a.mp4"), ElementsAre("-i", "x", "-c", "copy"));
  EXPECT_THAT(table.at("b.wav"), ElementsAre("-ac", "2"));
}

TEST(FixtureTable, QuotesKeepBlanksAndMayMakeAnEmptyArgument) {
  EXPECT_THAT(tableOf("a: title=\"A B\" \"\" c").at("a"), ElementsAre("title=A B", "", "c"));
}

TEST(FixtureTable, RefusesWhatIsNoRow) {
  EXPECT_THROW(tableOf("no colon"), std::runtime_error);
  EXPECT_THROW(tableOf("  -i before any name"), std::runtime_error);
  EXPECT_THROW(tableOf("a: 1\na: 2"), std::runtime_error);
  EXPECT_THROW(tableOf("a: \"open"), std::runtime_error);
}

TEST(FixtureTable, NamesInBracesBecomePaths) {
  const auto path = [](const std::string& name) { return "/" + name; };
  EXPECT_EQ(withFixturePaths("x={a}:{b.c}!", path), "x=/a:/b.c!");
  EXPECT_EQ(withFixturePaths("plain", path), "plain");
  EXPECT_EQ(withFixturePaths("open{a", path), "open{a");
}

TEST(Fixture, IsMadeAsItsRowSays) {
  const auto json = ffprobeJson(fixture("av25.mp4"));
  ASSERT_EQ(json["streams"].size(), 2u);
  EXPECT_EQ(json["streams"][0]["codec_name"], "h264");
  EXPECT_EQ(json["streams"][0]["width"], 320);
  EXPECT_EQ(json["streams"][0]["height"], 180);
  EXPECT_EQ(json["streams"][0]["r_frame_rate"], "25/1");
  EXPECT_EQ(json["streams"][0]["nb_frames"], "50");
  EXPECT_EQ(json["streams"][1]["codec_name"], "aac");
  EXPECT_EQ(json["streams"][1]["sample_rate"], "44100");
  EXPECT_EQ(json["streams"][1]["channels"], 2);
}

TEST(Fixture, EveryRowCanBeMade) {
  for (const std::string& name : fixtureNames()) {
    EXPECT_GT(std::filesystem::file_size(fixture(name)), 0u) << name;
  }
}

TEST(Fixture, ManyProcessesMayAskAtOnce) {
  // The same test program makes a fixture in a folder of its own: several at once, one file.
  const TempDir folder;
  const RunOptions options{.environment = {"KESTREL_FIXTURE_DIR=" + folder.path().string()}};
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::vector<std::string> command{self, "--gtest_filter=Fixture.IsMadeOnce"};
  std::vector<std::unique_ptr<Process>> processes;
  for (int i = 0; i < 6; ++i) processes.push_back(std::make_unique<Process>(command, options));
  for (const auto& process : processes) EXPECT_EQ(process->wait().status, 0);

  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    if (entry.is_regular_file()) files.push_back(entry.path().filename());
  }
  EXPECT_THAT(files, ::testing::UnorderedElementsAre("audio-only.m4a", "lock"));
}

TEST(Fixture, IsMadeOnce) {
  const auto first = fixture("audio-only.m4a");
  const auto time = std::filesystem::last_write_time(first);
  EXPECT_EQ(fixture("audio-only.m4a"), first);
  EXPECT_EQ(std::filesystem::last_write_time(first), time);
}

TEST(Fixture, MayStandOnOthers) {
  const auto json = ffprobeJson(fixture("av-tags.mp4"));
  EXPECT_EQ(json["format"]["tags"]["title"], "A Title");
  EXPECT_EQ(json["chapters"].size(), 2u);
}

TEST(Fixture, CheckedInFileIsAFixtureToo) {
  std::ifstream file(fixture("subtitles.srt"));
  std::string line;
  ASSERT_TRUE(std::getline(file, line));
  EXPECT_EQ(line, "1");
}

TEST(Fixture, UnknownNameSaysSo) {
  try {
    fixture("no-such.mp4");
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("no-such.mp4"));
  }
}

TEST(MediaFile, LiesInTheFolderThatTheEnvironmentNames) {
  const TempDir folder;
  setenv("KESTREL_MEDIA_DIR", folder.path().c_str(), 1);
  EXPECT_EQ(mediaFile("a.mp4"), folder / "a.mp4");
  unsetenv("KESTREL_MEDIA_DIR");
  EXPECT_THAT(mediaFile("a.mp4").string(), ::testing::EndsWith("/shared/media/a.mp4"));
}

}  // namespace
}  // namespace kestrel::test
