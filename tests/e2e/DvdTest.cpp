#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/dvd/Disc.h"
#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

RunResult dvd(const fs::path& path, const Arguments& options = {}) {
  return run(joined({kestrelBinary(), "dvd", path.string()}, options));
}

json dvdJson(const fs::path& path) {
  const RunResult result = dvd(path, {"--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return json::parse(result.out);
}

std::vector<double> chapterStarts(const json& title) {
  std::vector<double> starts;
  for (const auto& chapter : title["chapters"]) starts.push_back(chapter["start"]);
  return starts;
}

TEST(Dvd, ListsADiscAsJson) {
  const json disc = dvdJson(discImage("pal"));
  EXPECT_EQ(disc["volume"], "KESTREL_PAL");
  EXPECT_EQ(disc["region"], 0);
  EXPECT_EQ(disc["path"], discImage("pal").string());
  ASSERT_EQ(disc["titles"].size(), 4U);
  const json first = disc["titles"][0];
  EXPECT_EQ(first["title"], 1);
  EXPECT_EQ(first["title_set"], 1);
  EXPECT_EQ(first["duration"], 8.0);
  EXPECT_THAT(chapterStarts(first), ElementsAre(0, 2, 4, 6));
  EXPECT_EQ(first["chapters"][3]["end"], 8.0);
  EXPECT_EQ(first["width"], 720);
  EXPECT_EQ(first["height"], 576);
  EXPECT_EQ(first["standard"], "PAL");
  EXPECT_EQ(first["aspect"], "16:9");
  EXPECT_EQ(first["codec"], "mpeg2video");
  EXPECT_EQ(first["angles"], 1);
  EXPECT_EQ(first["stated"], json::parse(R"({"width": 720, "height": 576, "standard": "PAL",
      "aspect": "16:9", "letterboxed": false, "allows_letterbox": true, "allows_pan_scan": false,
      "film": false, "captions": false})"));
  EXPECT_EQ(first["audio"][1], json::parse(R"({"track": 1, "language": "fr", "name": "French",
      "codec": "ac3", "kind": null, "channels": 6, "surround": false, "sample_rate": 48000,
      "bits": null})"));
  EXPECT_EQ(first["subtitles"], json::parse(R"([
      {"track": 0, "language": "en", "name": "English", "codec": "dvd_subtitle", "kind": null},
      {"track": 1, "language": "fr", "name": "French", "codec": "dvd_subtitle", "kind": null}])"));
  EXPECT_EQ(first["main"], true);
  EXPECT_EQ(first["main_reason"], "longest");
  EXPECT_EQ(first["same_as"], nullptr);
  const json third = disc["titles"][2];
  EXPECT_EQ(third["same_as"], 1);
  EXPECT_EQ(third["main"], false);
  const json last = disc["titles"][3];
  EXPECT_EQ(last["title"], 4);
  EXPECT_EQ(last["title_set"], 2);
  EXPECT_EQ(last["aspect"], "4:3");
  EXPECT_EQ(last["audio"][0]["language"], nullptr);
  EXPECT_EQ(last["audio"][0]["name"], nullptr);
  EXPECT_EQ(last["audio"][0]["codec"], "mp2");
}

TEST(Dvd, AFolderAndItsVideoFolderAreTheSameDisc) {
  const json folder = dvdJson(discFolder("pal"));
  EXPECT_EQ(folder["volume"], "disc");
  EXPECT_EQ(folder["titles"], dvdJson(discImage("pal"))["titles"]);
  EXPECT_EQ(folder["titles"], dvdJson(discFolder("pal") / "VIDEO_TS")["titles"]);
  EXPECT_EQ(folder["titles"], dvdJson(discFolder("pal") / "VIDEO_TS" / "VIDEO_TS.IFO")["titles"]);
  EXPECT_EQ(folder["titles"], dvdJson(discFolder("pal") / "VIDEO_TS" / "VTS_02_0.BUP")["titles"]);
  const TempDir flat;  // without the folder's name
  fs::copy(discFolder("pal") / "VIDEO_TS", flat / "film");
  EXPECT_EQ(folder["titles"], dvdJson(flat / "film")["titles"]);
  EXPECT_EQ(folder["titles"], dvdJson(flat / "film" / "VIDEO_TS.IFO")["titles"]);
}

TEST(Dvd, KnowsNtscFromItsPictures) {
  const json title = dvdJson(discFolder("ntsc"))["titles"][0];
  EXPECT_EQ(title["standard"], "NTSC");
  EXPECT_EQ(title["aspect"], "4:3");
  EXPECT_EQ(title["height"], 480);
}

/// Compares the titles with what lsdvd says: one match for each.
void expectAgreement(const fs::path& path) {
  const std::string text = run({"lsdvd", "-c", path.string()}).out;
  static const std::regex kTitle(
      R"(Title: (\d+), Length: (\d+):(\d+):([\d.]+) Chapters: (\d+), Cells: \d+, Audio streams: (\d+), Subpictures: (\d+))");
  const json titles = dvdJson(path)["titles"];
  size_t index = 0;
  for (std::sregex_iterator match(text.begin(), text.end(), kTitle), end; match != end;
       ++match, ++index) {
    ASSERT_LT(index, titles.size()) << path;
    const json& title = titles[index];
    const auto number = [&](size_t group) { return std::stod((*match)[group].str()); };
    EXPECT_EQ(title["title"], number(1));
    EXPECT_NEAR(title["duration"], (number(2) * 60 + number(3)) * 60 + number(4), 0.002);
    EXPECT_EQ(title["chapters"].size(), number(5));
    EXPECT_EQ(title["audio"].size(), number(6));
    EXPECT_EQ(title["subtitles"].size(), number(7));
  }
  EXPECT_EQ(index, titles.size()) << path;
}

TEST(Dvd, AgreesWithAnotherProgram) {
  for (const char* name : {"pal", "ntsc", "seams", "runs", "many", "film", "late", "formats"})
    expectAgreement(discImage(name));
}

TEST(Dvd, NumbersTitlesAsTheDiscsTableDoes) {
  const DiscCopy disc("pal");
  exchangeTitles(disc, 1, 4);
  expectAgreement(disc.path());
  const json titles = dvdJson(disc.path())["titles"];
  EXPECT_EQ(titles[0]["title_set"], 2);
  EXPECT_EQ(titles[0]["duration"], 2.0);
  EXPECT_EQ(titles[3]["duration"], 8.0);
  EXPECT_EQ(titles[2]["main"], true);
  EXPECT_EQ(titles[3]["same_as"], 3);
}

TEST(Dvd, AgreesWithTheVobs) {
  const json title = dvdJson(discFolder("ntsc"))["titles"][0];
  const json video = streamOf(discFolder("ntsc") / "VIDEO_TS" / "VTS_01_1.VOB", "video");
  EXPECT_EQ(title["width"], video["width"]);
  EXPECT_EQ(title["height"], video["height"]);
  EXPECT_EQ(title["aspect"], video["display_aspect_ratio"]);
}

TEST(Dvd, ListsADiscInWords) {
  const RunResult result = dvd(discImage("pal"));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              HasSubstr("KESTREL_PAL: DVD-Video, all regions, 2 title sets, 4 titles\n"));
  EXPECT_THAT(result.out,
              HasSubstr("Title 1     0:08, 4 chapters, 720x576, PAL, 16:9, title set 1\n"
                        "  pictures  4:3 screens may show it with bars\n"
                        "  sound     0 English (en), ac3, 2 channels, 48000 Hz\n"
                        "            1 French (fr), ac3, 6 channels, 48000 Hz\n"
                        "            2 German (de), mp2, 2 channels, 48000 Hz\n"
                        "  subtitles 0 English (en)\n"
                        "            1 French (fr)\n"
                        "  main      the main feature: longest\n"));
  EXPECT_THAT(result.out, HasSubstr("  same as   title 1\n"));
}

TEST(Dvd, TellsAnglesAndKindsInWords) {
  EXPECT_THAT(dvd(discImage("angles")).out,
              HasSubstr("352x288, PAL, 4:3, 2 angles, title set 1\n"));
  EXPECT_EQ(dvdJson(discImage("angles"))["titles"][0]["angles"], 2);
  const DiscCopy disc("formats");
  disc.patchInformation("VTS_01_0", 0x200, "\x50\x02");  // letterboxed pictures
  disc.patchInformation("VTS_01_0", 0x204 + 8 * 2 + 5, "\3");
  disc.patchInformation("VTS_01_0", 0x256 + 5, "\x9");
  const std::string text = dvd(disc.path()).out;
  EXPECT_THAT(text, HasSubstr("  pictures  letterboxed\n"
                              "  sound     0 English (en), pcm_dvd, 2 channels, 48000 Hz, 16 bits\n"
                              "            1 French (fr), dts, 2 channels, 48000 Hz\n"
                              "            2 German (de), ac3, 2 channels, 48000 Hz, commentary\n"
                              "  subtitles 0 Dutch (nl), forced\n"));
}

TEST(Dvd, NamesTheRegionsInWhichADiscPlays) {
  const DiscCopy disc("runs");
  disc.patchInformation("VIDEO_TS", 0x23, "\xF5");
  EXPECT_THAT(dvd(disc.path()).out, HasSubstr("regions 2, 4,"));
  EXPECT_EQ(dvdJson(disc.path())["region"], 0xF5);
}

TEST(Dvd, ListsTheFiles) {
  const RunResult result = dvd(discImage("pal"), {"--files"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr(" 12288  VIDEO_TS/VIDEO_TS.IFO\n"));
  const auto size = fs::file_size(discFolder("pal") / "VIDEO_TS" / "VTS_02_1.VOB");
  EXPECT_THAT(result.out, HasSubstr(std::to_string(size) + "  VIDEO_TS/VTS_02_1.VOB\n"));
  const json document = json::parse(dvd(discImage("pal"), {"--files", "--json"}).out);
  EXPECT_EQ(document["files"].size(), 9U);
  EXPECT_EQ(document["files"][8]["size"], size);
}

TEST(Dvd, DumpsTheStructure) {
  const RunResult result = dvd(discImage("pal"), {"--dump"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("title_set_nr 2 1 1 angle:1\n"));
  EXPECT_THAT(result.out, HasSubstr("+++++++title_set 1 program:3 cell:3 pgc:1\n"));
}

TEST(Dvd, RefusesWhatIsNoDisc) {
  const TempDir folder;
  fs::create_directory(folder / "VIDEO_TS");
  writeBytes(folder / "film.iso", std::string(100000, 'x'));
  EXPECT_TRUE(endsWithSentence(dvd(folder / "none"), 1, "No such file or directory"));
  EXPECT_TRUE(endsWithSentence(dvd(folder.path()), 1, folder.path().string()));
  EXPECT_TRUE(endsWithSentence(dvd(folder / "VIDEO_TS"), 1, "VIDEO_TS"));
  EXPECT_TRUE(endsWithSentence(dvd(folder / "film.iso"), 1, "film.iso"));
  EXPECT_TRUE(endsWithSentence(dvd(discFolder("pal"), {"--dump", "--json"}), 2, "--dump"));
  EXPECT_TRUE(endsWithSentence(run({kestrelBinary(), "dvd"}), 2, "path"));
}

TEST(Dvd, OtherVerbsSayThatItIsADisc) {
  for (const auto& disc : {discFolder("pal"), discImage("pal")}) {
    const auto refuses = [&](const Arguments& arguments, const std::string& how) {
      return endsWithSentence(run(joined({kestrelBinary()}, arguments)), 2,
                              "it is a DVD-Video disc; choose a title of it " + how);
    };
    const char* const kOption = "with --title N or --title main";
    const char* const kMark = "by '#N' or '#main' behind its name";
    EXPECT_TRUE(refuses({"info", disc.string()}, kOption));
    EXPECT_TRUE(refuses({"wave", disc.string(), "wave.png"}, kOption));
    EXPECT_TRUE(refuses({"thumb", disc.string(), "picture.png"}, kOption));
    EXPECT_TRUE(refuses({"effects", "--preview", disc.string(), "picture.png"}, kOption));
    EXPECT_TRUE(refuses({"play", disc.string()}, kOption));
    EXPECT_TRUE(refuses({"join", disc.string(), "-o", "joined.mkv"}, kMark));
    EXPECT_TRUE(refuses({"compose", disc.string() + ":1", "-o", "composed.mkv"}, kMark));
  }
}

TEST(Dvd, ABackupStandsInForAnInformationFile) {
  const DiscCopy disc("pal");
  fs::remove(disc.file("VTS_01_0.IFO"));
  disc.cut("VTS_02_0.IFO", 1000);
  disc.cut("VIDEO_TS.IFO", 2048);
  EXPECT_EQ(dvdJson(disc.path())["titles"].size(), 4U);
}

TEST(Dvd, ReadsADiscOfBackupsAlone) {
  const DiscCopy disc("pal");
  for (const char* stem : {"VIDEO_TS", "VTS_01_0", "VTS_02_0"})
    fs::remove(disc.file(std::string(stem) + ".IFO"));
  EXPECT_EQ(dvdJson(disc.path())["titles"].size(), 4U);
}

TEST(Dvd, ListsWhatIsLeftOfADamagedDiscAndSaysSo) {
  const DiscCopy disc("pal");
  disc.cut("VTS_01_0.IFO", 3000);
  disc.cut("VTS_01_0.BUP", 3000);
  const RunResult result = dvd(disc.path(), {"--json"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("title set 1 cannot be read (titles 1 to 3)\n"));
  const json titles = json::parse(result.out)["titles"];
  ASSERT_EQ(titles.size(), 1U);
  EXPECT_EQ(titles[0]["title"], 4);
  EXPECT_EQ(titles[0]["title_set"], 2);
}

TEST(Dvd, SaysWhichTitlesAreNotWhole) {
  const DiscCopy disc("pal");
  const auto finds = [&](const std::string& finding) {
    const RunResult result = dvd(disc.path());
    EXPECT_THAT(result.out, HasSubstr("4 titles\n"));
    EXPECT_THAT(result.err, testing::EndsWith("cannot be read whole: " + finding + "\n"));
    return result.status;
  };
  disc.cut("VTS_01_1.VOB", fs::file_size(disc.file("VTS_01_1.VOB")) - 2048);
  EXPECT_EQ(finds("title 2: not all of the title's sectors are there"), 3);
  disc.cut("VTS_01_1.VOB", 0);
  EXPECT_EQ(finds("titles 1 to 3: none of the title's sectors are there"), 3);
  fs::remove(disc.file("VTS_02_1.VOB"));
  EXPECT_EQ(finds("titles 1 to 3: none of the title's sectors are there; title 4: the title's VOBs "
                  "cannot be opened"),
            3);
}

TEST(Dvd, SaysThatADiscIsScrambled) {
  const DiscCopy disc("pal");
  scramble(disc, 10);
  const RunResult result = dvd(disc.path());
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("titles 1 to 3: the disc is scrambled"));
}

json titleOf(const json& disc, int number) {
  return disc["titles"][static_cast<size_t>(number) - 1];
}

TEST(Dvd, TheMainTitleIsTheOneWithMostChaptersOfTheLongest) {
  const json disc = dvdJson(discFolder("formats"));
  EXPECT_EQ(titleOf(disc, 1)["duration"], titleOf(disc, 2)["duration"]);
  EXPECT_EQ(titleOf(disc, 1)["main"], false);
  EXPECT_EQ(titleOf(disc, 2)["main_reason"], "longest, most chapters");
}

TEST(Dvd, OfTitlesAlikeTheFirstIsTheMainOne) {
  const json disc = dvdJson(discFolder("many"));
  EXPECT_EQ(titleOf(disc, 1)["main_reason"], "the first of 6 that are longest");
  // Each title set has two titles of their own; the others repeat them.
  EXPECT_EQ(titleOf(disc, 3)["same_as"], 1);
  EXPECT_EQ(titleOf(disc, 34)["same_as"], nullptr);
}

TEST(Dvd, ListsTheFilesOfLostTitleSets) {
  const DiscCopy disc("pal");
  disc.cut("VTS_01_0.IFO", 3000);
  disc.cut("VTS_01_0.BUP", 3000);
  const RunResult result = dvd(disc.path(), {"--files"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.out, HasSubstr(" 3000  VIDEO_TS/VTS_01_0.IFO\n"));
  EXPECT_THAT(result.out, HasSubstr("  VIDEO_TS/VTS_02_1.VOB\n"));
}

TEST(Dvd, AVolumesNameStaysOnItsLine) {
  const TempDir folder;
  fs::copy(discFolder("runs"), folder / "a\xFF\nb", fs::copy_options::recursive);
  EXPECT_THAT(dvd(folder / "a\xFF\nb").out, testing::StartsWith("a\uFFFD b: DVD-Video, "));
}

TEST(Dvd, ReadsADiscOfAbsurdCounts) {
  const DiscCopy disc("pal");
  disc.patchInformation("VIDEO_TS", 0x3E, "\xFF\xFF");  // title sets
  const RunResult sets = dvd(disc.path());
  EXPECT_EQ(sets.status, 3);
  EXPECT_THAT(sets.out, HasSubstr("2 title sets, 4 titles\n"));
  EXPECT_THAT(sets.err, HasSubstr(": title sets 3 to 99 cannot be read\n"));
  // Chains, cells and cell addresses: the tables' sectors stand at 0xCC and 0xE0.
  const std::string content = bytesOf(disc.file("VTS_02_0.IFO"));
  for (const size_t table : {0xCC, 0xE0})
    disc.patchInformation("VTS_02_0", size_t{readBigEndian32(content, table)} * 2048,
                          std::string(8, '\xFF'));
  const RunResult tables = dvd(disc.path());
  EXPECT_EQ(tables.status, 3);
  EXPECT_THAT(tables.out, HasSubstr("Title 1     0:08, 4 chapters"));
}

TEST(Dvd, ReadsWhatIsLeftOfADamagedImage) {
  const TempDir folder;
  const std::string whole = bytesOf(discImage("pal"));
  writeBytes(folder / "half.iso", whole.substr(0, whole.size() / 2));
  const RunResult half = dvd(folder / "half.iso");
  EXPECT_EQ(half.status, 3);
  EXPECT_THAT(half.out, HasSubstr("Title 1     0:08, 4 chapters, 720x576"));
  EXPECT_THAT(half.err, HasSubstr("title"));
  writeBytes(folder / "begun.iso", whole.substr(0, 100000));
  EXPECT_TRUE(endsWithSentence(dvd(folder / "begun.iso"), 1, "begun.iso"));
  std::string blank = whole;
  std::fill_n(blank.begin() + 16 * 2048, 400 * 2048, '\0');  // what tells where files lie
  writeBytes(folder / "blank.iso", blank);
  EXPECT_TRUE(endsWithSentence(dvd(folder / "blank.iso"), 1, "blank.iso"));
}

TEST(Dvd, SaysWhereTheTableOfTitlesIsLost) {
  const DiscCopy disc("pal");
  disc.cut("VIDEO_TS.IFO", 2048);
  disc.cut("VIDEO_TS.BUP", 2048);
  const RunResult result = dvd(disc.path(), {"--json"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("its table of titles cannot be read"));
  EXPECT_EQ(json::parse(result.out)["titles"].size(), 4U);
}

}  // namespace
}  // namespace kestrel::test
