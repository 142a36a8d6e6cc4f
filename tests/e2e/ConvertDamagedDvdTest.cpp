#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/dvd/Disc.h"
#include "tests/e2e/ConvertDvd.h"
#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// Discs that lack something, or that say what is not so.
class ConvertDamagedDvd : public ConvertDvd {};

/// Makes a sound track's packets of the first title set padding.
void removeSound(const DiscCopy& disc, char id) {
  std::string content = bytesOf(disc.file("VTS_01_1.VOB"));
  for (size_t sector = 0; sector < content.size(); sector += 2048) {
    const size_t packet = sector + 14;
    const auto header = static_cast<uint8_t>(content[packet + 8]);
    if (content[packet + 3] == '\xBD' && content[packet + 9 + header] == id)
      content[packet + 3] = '\xBE';
  }
  writeBytes(disc.file("VTS_01_1.VOB"), content);
}

TEST_F(ConvertDamagedDvd, TracksKeepTheirNumbersWhereOneIsNotThere) {
  const DiscCopy disc("pal");
  removeSound(disc, '\x80');
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1", "--audio-tracks", "0"}), 1,
                       "audio track 0 is not in the title's VOBs"));
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1", "--audio-tracks", "3"}), 2,
                       "there is no audio track 3: the input has 3"));
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1", "--audio-tracks", "en"}), 2,
                       "there is no audio track in 'en'"));
  ASSERT_TRUE(convertsSound(disc.path(), "1", {"--audio-tracks", "1"}));
  EXPECT_EQ(languageOf(streamOf(output(), "audio")), "fra");
  ASSERT_TRUE(convertsSound(disc.path(), "1", {"--audio-tracks", "2"}));
  EXPECT_EQ(languageOf(streamOf(output(), "audio")), "deu");
  ASSERT_TRUE(convertsSound(disc.path(), "1"));
  EXPECT_EQ(languageOf(streamOf(output(), "audio")), "fra");
}

TEST_F(ConvertDamagedDvd, NeverTakesOneTitleForAnother) {
  const DiscCopy disc("pal");
  exchangeTitles(disc, 1, 4);
  ASSERT_TRUE(convertsSound(disc.path(), "1"));
  EXPECT_NEAR(durationOf(output()), 2, 0.1);
  disc.cut("VTS_01_0.IFO", 3000);
  disc.cut("VTS_01_0.BUP", 3000);
  ASSERT_TRUE(convertsSound(disc.path(), "1"));
  EXPECT_NEAR(durationOf(output()), 2, 0.1);
  fs::remove(output());
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), {"--title", "4"}), 1,
                               "title 4 cannot be read: title set 1, which holds it, is lost"));
  EXPECT_FALSE(fs::exists(output()));
  // Of the longest film nobody knows; what is left converts.
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), {"--title", "main"}), 3,
                               "title set 1 cannot be read (titles 2 to 4)"));
  EXPECT_NEAR(durationOf(output()), 2, 0.1);
}

TEST_F(ConvertDamagedDvd, ATitleWithoutItsChainIsRefused) {
  const DiscCopy disc("pal");
  setFirstChain(disc, 9);
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), {"--title", "1"}), 1,
                               "title 1 cannot be read: its program chain is empty or damaged"));
  ASSERT_TRUE(convertsSound(disc.path(), "3"));
  EXPECT_NEAR(durationOf(output()), 8, 0.1);
}

TEST_F(ConvertDamagedDvd, SaysThatNumbersAreDoubtfulWithoutATableOfTitles) {
  const DiscCopy disc("ntsc");
  disc.cut("VIDEO_TS.IFO", 2048);
  disc.cut("VIDEO_TS.BUP", 2048);
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), joined({"--title", "1"}, kFast)), 3,
                               "table of titles"));
  EXPECT_NEAR(durationOf(output()), 3, 0.1);
}

TEST_F(ConvertDamagedDvd, ConvertsWhatATruncatedVobHoldsAndSaysSo) {
  const DiscCopy disc("pal");
  disc.cut("VTS_01_1.VOB", fs::file_size(disc.file("VTS_01_1.VOB")) / 4);
  const RunResult result = convert(disc.path(), output(), joined({"--title", "1"}, kFast));
  EXPECT_TRUE(endsWithSentence(result, 3, disc.path().string()));
  EXPECT_GT(durationOf(output()), 2);
  EXPECT_LT(durationOf(output()), 8);
}

TEST_F(ConvertDamagedDvd, ConvertsWhatIsLeftAroundSectorsThatAreNoPacks) {
  const DiscCopy disc("pal");
  std::string content = bytesOf(disc.file("VTS_01_1.VOB"));
  std::fill_n(content.begin() + 2048 * 200, 2048 * 60, '\xFF');
  writeBytes(disc.file("VTS_01_1.VOB"), content);
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), joined({"--title", "1"}, kFast)), 3,
                               "not all of its sectors can be read"));
  EXPECT_NEAR(durationOf(output()), 8, 1);
}

TEST_F(ConvertDamagedDvd, ABackupStandsInForAnInformationFile) {
  const DiscCopy disc("pal");
  for (const char* stem : {"VIDEO_TS", "VTS_01_0"}) disc.cut(std::string(stem) + ".IFO", 2048);
  ASSERT_TRUE(convertsSound(disc.path(), "2"));
  EXPECT_NEAR(durationOf(output()), 6.08, 0.1);
  for (const char* stem : {"VIDEO_TS", "VTS_01_0", "VTS_02_0"})
    fs::remove(disc.file(std::string(stem) + ".IFO"));
  ASSERT_TRUE(convertsSound(disc.path(), "2"));
  EXPECT_NEAR(durationOf(output()), 6.08, 0.1);
}

TEST_F(ConvertDamagedDvd, ConvertsWhatLiesBeforeAMissingPart) {
  const DiscCopy disc("pal");
  // Three parts of the VOBs, as large discs have them.
  const std::string whole = bytesOf(disc.file("VTS_01_1.VOB"));
  const size_t third = whole.size() / 2048 / 3 * 2048;
  writeBytes(disc.file("VTS_01_1.VOB"), whole.substr(0, third));
  writeBytes(disc.file("VTS_01_2.VOB"), whole.substr(third, third));
  writeBytes(disc.file("VTS_01_3.VOB"), whole.substr(2 * third));
  ASSERT_TRUE(convertsSound(disc.path(), "2"));
  EXPECT_NEAR(durationOf(output()), 6.08, 0.1);
  fs::remove(disc.file("VTS_01_2.VOB"));
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), joined({"--title", "1", "--force"}, kFast)),
                       3, "not all of its sectors can be read"));
  EXPECT_LT(durationOf(output()), 7);
}

TEST_F(ConvertDamagedDvd, ConvertsWhatADamagedImageHolds) {
  const std::string whole = bytesOf(discImage("pal"));
  writeBytes(folder_ / "half.iso", whole.substr(0, whole.size() / 2));
  EXPECT_TRUE(endsWithSentence(
      convert(folder_ / "half.iso", output(), joined({"--title", "1"}, kFast)), 3, "half.iso"));
  EXPECT_GT(durationOf(output()), 1);
  std::string holed = whole;
  std::fill_n(holed.begin() + static_cast<long>(whole.size() / 3), 100 * 2048, '\0');
  writeBytes(folder_ / "holed.iso", holed);
  EXPECT_TRUE(endsWithSentence(
      convert(folder_ / "holed.iso", output(), joined({"--title", "1", "--force"}, kFast)), 3,
      "not all of its sectors can be read"));
  EXPECT_NEAR(durationOf(output()), 8, 1);
}

TEST_F(ConvertDamagedDvd, FailsInASentenceWhereNothingIsLeft) {
  const DiscCopy disc("ntsc");
  disc.cut("VTS_01_1.VOB", 0);
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1"}), 1, disc.path().string()));
  fs::remove(disc.file("VTS_01_1.VOB"));
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1"}), 1, disc.path().string()));
  EXPECT_FALSE(fs::exists(output()));
}

TEST_F(ConvertDamagedDvd, SectorsBehindTheEndAreNotRead) {
  const DiscCopy disc("ntsc");
  // Where the first cell's last unit begins, and its last sector.
  disc.patchInformation("VTS_01_0", placeOfCell(disc, 0, 0) + 16,
                        bigEndian32(0x7FFFFF00) + bigEndian32(0x7FFFFFF0));
  const RunResult result = convert(disc.path(), output(), joined({"--title", "1"}, kFast));
  EXPECT_TRUE(endsWithSentence(result, 3, disc.path().string()));
  EXPECT_NEAR(durationOf(output()), 3, 0.2);
}

TEST_F(ConvertDamagedDvd, SaysThatADiscIsScrambled) {
  const DiscCopy disc("ntsc");
  scramble(disc, 20);
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "1"}), 1, "is scrambled"));
  EXPECT_FALSE(fs::exists(output()));
}

TEST_F(ConvertDamagedDvd, SaysThatWhatFollowsOnAPlainStartIsScrambled) {
  const DiscCopy disc("pal");
  const auto dvd = LMDVD::open(disc.path().string());
  const auto& titles = dvd->title_sets()[0]->titles();
  // From the middle of title 1 on, and all of the last piece of title 2.
  const auto& film = *titles[0]->medias()[0];
  scramble(disc, film.sector_count() / 2, film.sector_count());
  const auto& last = *titles[1]->medias()[2];
  scramble(disc, last.start_sector(), last.start_sector() + last.sector_count());
  EXPECT_TRUE(
      endsWithSentence(convert(disc.path(), output(), {"--title", "2"}), 1, "is scrambled"));
  EXPECT_FALSE(fs::exists(output()));
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), joined({"--title", "1"}, kFast)), 3,
                               "is scrambled"));
  EXPECT_GT(durationOf(output()), 2);
}

TEST_F(ConvertDamagedDvd, CellsWithoutSectorsAreMissed) {
  const DiscCopy disc("pal");
  for (const size_t cell : {1, 2})  // their last sectors
    disc.patchInformation("VTS_01_0", placeOfCell(disc, 0, cell) + 20, bigEndian32(0));
  EXPECT_TRUE(endsWithSentence(convert(disc.path(), output(), joined({"--title", "1"}, kFast)), 3,
                               "not all of its sectors can be read"));
  EXPECT_NEAR(durationOf(output()), 4, 0.1);
}

}  // namespace
}  // namespace kestrel::test
