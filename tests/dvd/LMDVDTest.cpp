#include <gmock/gmock.h>
#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LibMedia.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include "tests/dvd/Disc.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int64_t kSecond = 1000000;

std::string english(const std::string& code) { return LibMedia::displayStringForLanguage(code); }

TEST(LMDVD, AnswersNullForWhatIsNotThere) { EXPECT_EQ(LMDVD::open("/nowhere/at/all"), nullptr); }

TEST(LMDVD, AnswersAVolumeWithoutTitleSetsForAnyOtherFile) {
  const TempDir folder;
  writeBytes(folder / "text.iso", "no disc");
  const auto dvd = LMDVD::open((folder / "text.iso").string());
  ASSERT_NE(dvd, nullptr);
  EXPECT_THAT(dvd->title_sets(), IsEmpty());
  EXPECT_THAT(dvd->titleSources(), IsEmpty());
}

TEST(LMDVD, TakesTheNameOfAFolder) {
  const TempDir folder;
  fs::copy(discFolder("runs"), folder / "MOVIE", fs::copy_options::recursive);
  EXPECT_EQ(LMDVD::open((folder / "MOVIE").string())->volume(), "MOVIE");
  EXPECT_EQ(LMDVD::open((folder / "MOVIE/").string())->volume(), "MOVIE");
}

TEST(LMDVD, TakesTheNameOfTheFolderAboveVideoTs) {
  const TempDir folder;
  fs::copy(discFolder("runs"), folder / "MOVIE", fs::copy_options::recursive);
  const auto path = (folder / "MOVIE/VIDEO_TS").string();
  const auto dvd = LMDVD::open(path);
  EXPECT_EQ(dvd->volume(), "MOVIE");
  EXPECT_EQ(dvd->path(), path);
  EXPECT_THAT(dvd->title_sets(), SizeIs(1));
}

TEST(LMDVD, TakesTheNameThatAnImageHas) {
  EXPECT_EQ(LMDVD::open(discImage("pal").string())->volume(), "KESTREL_PAL");
}

TEST(LMDVD, ListsTitleSetsAndTitles) {
  for (const auto& path : {discFolder("pal"), discImage("pal")}) {
    const auto dvd = LMDVD::open(path.string());
    ASSERT_THAT(dvd->title_sets(), SizeIs(2));
    EXPECT_EQ(dvd->title_sets()[0]->title_set(), 1);
    EXPECT_EQ(dvd->title_sets()[1]->title_set(), 2);
    const auto& titles = dvd->title_sets()[0]->titles();
    ASSERT_THAT(titles, SizeIs(3));
    EXPECT_EQ(titles[2]->title(), 2);
    EXPECT_EQ(titles[0]->duration(), 8 * kSecond);
    EXPECT_EQ(titles[1]->duration(), 6 * kSecond + 80000);
    EXPECT_THAT(titles[0]->chapterTimes(), ElementsAre(0, 2 * kSecond, 4 * kSecond, 6 * kSecond));
    EXPECT_THAT(titles[1]->chapterTimes(), ElementsAre(0, 3 * kSecond, 3 * kSecond + 80000));
  }
}

TEST(LMDVD, KnowsTheStreamsOfEverySoundFormatAndOfNarrowPictures) {
  const auto dvd = LMDVD::open(discFolder("formats").string());
  const auto& title = *dvd->title_sets()[0]->titles()[0];
  EXPECT_THAT(title.audioTracks(),
              ElementsAre(LMDVDTrack{0, 0xA0, "en", english("en"), 2, 48000, "pcm_dvd", 16},
                          LMDVDTrack{1, 0x88, "fr", english("fr"), 2, 48000, "dts"},
                          LMDVDTrack{2, 0x80, "de", english("de"), 2, 48000, "ac3"}));
  EXPECT_THAT(title.subtitleTracks(),
              ElementsAre(LMDVDTrack{0, 0x20, "nl", english("nl"), 0, 0, "dvd_subtitle"}));
}

/// Pictures of 4:3 have their subpictures' number in the highest byte of its word, others in the
/// second: of the first title it stands 28 bytes into the chain.
TEST(LMDVD, TakesTheSubpicturesForTheWholePicture) {
  const auto idIn = [](const char* name) {
    const DiscCopy disc(name);
    disc.patchInformation("VTS_01_0", placeOfChain(disc, 0) + 28, bigEndian32(0x81020304));
    const auto dvd = LMDVD::open(disc.path().string());
    return dvd->title_sets().at(0)->titles().at(0)->subtitleTracks().at(0).stream_id;
  };
  EXPECT_EQ(idIn("formats"), 0x21);
  EXPECT_EQ(idIn("pal"), 0x22);
}

/// Title set and title of each number, "-" where that is lost.
std::string numbersOf(const LMDVD& dvd) {
  std::string text;
  for (const auto& numbered : dvd.numberedTitles())
    text += fmt::format("{}:{} ", numbered.title_set,
                        numbered.title ? std::to_string(numbered.title->title()) : "-");
  return text;
}

TEST(LMDVD, NumbersTitlesByTheDiscsOwnTable) {
  const DiscCopy disc("pal");
  EXPECT_EQ(numbersOf(*LMDVD::open(disc.path().string())), "1:0 1:1 1:2 2:0 ");
  exchangeTitles(disc, 1, 4);
  const auto dvd = LMDVD::open(disc.path().string());
  EXPECT_EQ(numbersOf(*dvd), "2:0 1:1 1:2 1:0 ");
  EXPECT_TRUE(dvd->hasTitleTable());
  EXPECT_EQ(dvd->numberedTitles()[0].set, dvd->title_sets()[1]);
}

TEST(LMDVD, LostTitlesKeepTheirNumbers) {
  const DiscCopy disc("pal");
  disc.cut("VTS_01_0.IFO", 3000);
  disc.cut("VTS_01_0.BUP", 3000);
  const auto dvd = LMDVD::open(disc.path().string());
  EXPECT_EQ(numbersOf(*dvd), "1:- 1:- 1:- 2:0 ");
  EXPECT_THAT(dvd->missingTitleSets(), ElementsAre(1));
}

TEST(LMDVD, TheBackupsTableOfTitlesStandsIn) {
  const DiscCopy disc("pal");
  exchangeTitles(disc, 1, 4);
  disc.cut("VIDEO_TS.IFO", 2048);
  EXPECT_EQ(numbersOf(*LMDVD::open(disc.path().string())), "2:0 1:1 1:2 1:0 ");
}

TEST(LMDVD, WithoutATableTitlesAreNumberedInTheOrderOfTitleSets) {
  const DiscCopy disc("pal");
  exchangeTitles(disc, 1, 4);
  disc.cut("VIDEO_TS.IFO", 2048);
  disc.cut("VIDEO_TS.BUP", 2048);
  const auto dvd = LMDVD::open(disc.path().string());
  EXPECT_EQ(numbersOf(*dvd), "1:0 1:1 1:2 2:0 ");
  EXPECT_FALSE(dvd->hasTitleTable());
}

TEST(LMDVD, ATitleIsTheChainThatItsFirstChapterNames) {
  const DiscCopy disc("pal");
  setFirstChain(disc, 2);
  EXPECT_EQ(numbersOf(*LMDVD::open(disc.path().string())), "1:1 1:1 1:2 2:0 ");
  setFirstChain(disc, 9);  // there are three
  EXPECT_EQ(numbersOf(*LMDVD::open(disc.path().string())), "1:- 1:1 1:2 2:0 ");
}

TEST(LMDVD, OfSeveralAnglesTheFirstIsPlayed) {
  const auto dvd = LMDVD::open(discFolder("angles").string());
  const auto& title = *dvd->title_sets()[0]->titles()[0];
  EXPECT_THAT(title.medias(), SizeIs(4));
  ASSERT_THAT(title.cells(), SizeIs(3));
  EXPECT_THAT(title.cells()[0].pieces, IsEmpty());
  // The second angle's units lie between those of the first.
  const auto& pieces = title.cells()[1].pieces;
  ASSERT_THAT(pieces, SizeIs(5));
  EXPECT_EQ(pieces.front().first, title.cells()[1].first_sector);
  EXPECT_EQ(pieces.back().last, title.cells()[1].last_sector);
  for (size_t i = 1; i < pieces.size(); ++i) EXPECT_GT(pieces[i].first, pieces[i - 1].last + 1);
  EXPECT_NEAR(static_cast<double>(title.duration()), 6 * kSecond, 0.05 * kSecond);
  EXPECT_THAT(title.chapters(), ElementsAre(0, 1, 2));
}

TEST(LMDVD, AnglesThatLieOneBehindTheOtherAreLeftOutToo) {
  const DiscCopy disc("pal");
  disc.patchInformation("VTS_01_0", placeOfCell(disc, 0, 1), "\x50");  // the first of a block
  disc.patchInformation("VTS_01_0", placeOfCell(disc, 0, 2), "\xD0");  // the last
  const auto dvd = LMDVD::open(disc.path().string());
  const auto& title = *dvd->title_sets()[0]->titles()[0];
  EXPECT_THAT(title.medias(), SizeIs(1));
  EXPECT_THAT(title.cells(), SizeIs(3));
  EXPECT_THAT(title.chapterTimes(), ElementsAre(0, 2 * kSecond, 4 * kSecond));
}

TEST(LMDVD, JoinsNeighbouringCellsOfOneVob) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto& titles = dvd->title_sets()[0]->titles();
  // Four cells of one VOB; three cells of three VOBs that lie one behind the other.
  EXPECT_THAT(titles[0]->cells(), SizeIs(4));
  ASSERT_THAT(titles[0]->medias(), SizeIs(1));
  EXPECT_EQ(titles[0]->medias()[0]->vob_id(), 1);
  ASSERT_THAT(titles[1]->medias(), SizeIs(3));
  const auto& runs = titles[1]->medias();
  EXPECT_EQ(runs[0]->start_sector() + runs[0]->sector_count(), runs[1]->start_sector());
  EXPECT_NE(runs[0]->vob_id(), runs[1]->vob_id());
}

TEST(LMDVD, KnowsWhereEachVobLies) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto& set = *dvd->title_sets()[0];
  ASSERT_THAT(set.medias(), SizeIs(4));
  // They fill the title VOBs without a gap.
  int32_t next = 0;
  for (const auto& vob : set.medias()) {
    EXPECT_EQ(vob->start_sector(), next);
    next += vob->sector_count();
  }
  const auto size = fs::file_size(discFolder("pal") / "VIDEO_TS" / "VTS_01_1.VOB");
  EXPECT_EQ(static_cast<uintmax_t>(next) * 2048, size);
  EXPECT_EQ(set.mediaForVob(3), set.medias()[3]);
  EXPECT_EQ(set.mediaForVob(4), nullptr);
}

TEST(LMDVD, AnAddressOfAnUnknownVobChangesNothing) {
  const DiscCopy disc("pal");
  // The sector of the cell address table stands at 0xE0; its entries begin 8 bytes into it.
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t table = static_cast<size_t>(static_cast<uint8_t>(content[0xE3])) * 2048;
  disc.patchInformation("VTS_01_0", table + 8, std::string("\x03\xE7", 2));  // VOB 999
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(2));
  const auto whole = LMDVD::open(discFolder("pal").string());
  const auto& vobs = dvd->title_sets()[0]->medias();
  const auto& wholeVobs = whole->title_sets()[0]->medias();
  ASSERT_GE(vobs.size(), 4U);
  // The first VOB now begins with its second cell; the others are as they were.
  EXPECT_GT(vobs[0]->start_sector(), 0);
  EXPECT_EQ(vobs[1]->description(), wholeVobs[1]->description());
}

TEST(LMDVD, AngleTakesItsOwnCells) {
  const auto dvd = LMDVD::open(discImage("angles").string());
  const auto& title = *dvd->title_sets()[0]->titles()[0];
  ASSERT_EQ(title.angles(), 2);
  EXPECT_EQ(title.cells(2).size(), title.cells(1).size());
  EXPECT_EQ(title.cells(2)[0], title.cells(1)[0]);
  EXPECT_EQ(title.cells(2)[2], title.cells(1)[2]);
  EXPECT_EQ(title.cells(2)[1].pieces.front().first, title.cells(1)[1].pieces.front().last + 1);
  EXPECT_EQ(title.cells(9), title.cells(2));
  const auto plain = LMDVD::open(discImage("pal").string());
  EXPECT_EQ(plain->title_sets()[0]->titles()[0]->angles(), 1);
}

TEST(LMDVD, AnInformationFileStandsForItsFolder) {
  const auto folder = discFolder("pal");
  for (const char* name : {"VIDEO_TS.IFO", "VIDEO_TS.BUP", "VTS_02_0.IFO"}) {
    const auto path = (folder / "VIDEO_TS" / name).string();
    const auto dvd = LMDVD::open(path);
    ASSERT_TRUE(dvd) << name;
    EXPECT_EQ(dvd->path(), path);
    EXPECT_EQ(dvd->volume(), LMDVD::open(folder.string())->volume());
    EXPECT_THAT(dvd->numberedTitles(), SizeIs(4));
  }
  EXPECT_TRUE(LMDVD::isNameOfInformation("film/vts_99_0.bup"));
  for (const char* other : {"VTS_01_1.VOB", "VTS_01_1.IFO", "VTS_1_0.IFO", "VIDEO_TS", "a.ifo"})
    EXPECT_FALSE(LMDVD::isNameOfInformation(other)) << other;
}

TEST(LMDVD, CopiesThePalette) {
  const DiscCopy disc("ntsc");
  // The table of program chains begins at the sector that 0xCC names; its first chain's place
  // stands 12 bytes into it, and a chain's colours 164 bytes into that.
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t table = static_cast<size_t>(static_cast<uint8_t>(content[0xCF])) * 2048;
  const size_t chain = table + static_cast<size_t>(static_cast<uint8_t>(content[table + 15]));
  disc.patchInformation("VTS_01_0", chain + 164 + 3 * 4, bigEndian32(0x00518FF0));
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(1));
  EXPECT_EQ((*dvd->title_sets()[0]->titles()[0]->palette())[3], 0x00518FF0U);
}

TEST(LMDVD, AProgramChainWithoutCellsIsNoTitle) {
  const DiscCopy disc("pal");
  const std::string content = bytesOf(disc.file("VTS_01_0.IFO"));
  const size_t table = static_cast<size_t>(static_cast<uint8_t>(content[0xCF])) * 2048;
  const auto at = [&](size_t place) { return static_cast<uint8_t>(content[place]); };
  const size_t second = table + 8 + 8 + 4;
  const size_t chain = table + (size_t{at(second + 2)} << 8 | at(second + 3));
  ASSERT_EQ(at(chain + 3), 3);  // its number of cells
  // No programs, no cells, and no tables of them.
  disc.patchInformation("VTS_01_0", chain + 2, std::string(2, '\0'));
  disc.patchInformation("VTS_01_0", chain + 230, std::string(6, '\0'));
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(2));
  const auto& titles = dvd->title_sets()[0]->titles();
  ASSERT_THAT(titles, SizeIs(2));
  EXPECT_EQ(titles[0]->title(), 0);
  EXPECT_EQ(titles[1]->title(), 2);
}

TEST(LMDVD, TellsTheRegionAndLogsIt) {
  const DiscCopy disc("pal");
  disc.patchInformation("VIDEO_TS", 0x23, "\xFD");  // may play in region 2 alone
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  const auto dvd = LMDVD::open(disc.path().string());
  setLogSink(nullptr);
  EXPECT_EQ(dvd->region(), 0xFD);
  EXPECT_THAT(lines, testing::Contains("title_sets 2 Region 0x02"));
}

TEST(LMDVD, OffersATitleWholeUpTo199RunsAndInPiecesFrom200On) {
  const auto dvd = LMDVD::open(discFolder("runs").string());
  EXPECT_EQ(LMDVD::dvdTitleSplitVobCount(), 200);
  const auto& titles = dvd->title_sets()[0]->titles();
  ASSERT_THAT(titles, SizeIs(3));
  ASSERT_THAT(titles[0]->medias(), SizeIs(199));
  ASSERT_THAT(titles[1]->medias(), SizeIs(200));
  ASSERT_THAT(titles[2]->medias(), SizeIs(201));
  const auto sources = dvd->titleSources();
  ASSERT_THAT(sources, SizeIs(1 + 200 + 201));
  EXPECT_EQ(sources[0]->media(), nullptr);
  EXPECT_EQ(sources[0]->title(), titles[0]);
  EXPECT_EQ(sources[1]->media(), titles[1]->medias()[0]);
  EXPECT_EQ(sources[200]->media(), titles[1]->medias()[199]);
  EXPECT_EQ(sources[401]->media(), titles[2]->medias()[200]);
}

TEST(LMDVD, ListsTheFiles) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  std::vector<std::string> names;
  for (const auto& file : dvd->dvdFiles()) {
    names.push_back(file->filename());
    EXPECT_EQ(static_cast<uintmax_t>(file->filesize()),
              fs::file_size(discFolder("pal") / file->filename()));
    EXPECT_EQ(file->offset(), 0);
    EXPECT_EQ(file->dvd(), dvd);
  }
  EXPECT_THAT(
      names,
      ElementsAre("VIDEO_TS/VIDEO_TS.IFO", "VIDEO_TS/VIDEO_TS.BUP", "VIDEO_TS/VIDEO_TS.VOB",
                  "VIDEO_TS/VTS_01_0.IFO", "VIDEO_TS/VTS_01_0.BUP", "VIDEO_TS/VTS_01_1.VOB",
                  "VIDEO_TS/VTS_02_0.IFO", "VIDEO_TS/VTS_02_0.BUP", "VIDEO_TS/VTS_02_1.VOB"));
}

TEST(LMDVD, ListsTheFilesOfTitleSetsThatCannotBeRead) {
  const DiscCopy disc("pal");
  const auto namesOf = [](LMDVD& dvd) {
    std::vector<std::string> names;
    for (const auto& file : dvd.dvdFiles()) names.push_back(file->filename());
    return names;
  };
  const auto whole = namesOf(*LMDVD::open(disc.path().string()));
  disc.cut("VTS_01_0.IFO", 3000);
  disc.cut("VTS_01_0.BUP", 3000);
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(1));
  EXPECT_THAT(whole, testing::Contains("VIDEO_TS/VTS_02_1.VOB"));
  EXPECT_EQ(namesOf(*dvd), whole);
}

TEST(LMDVD, NeverListsTitleVobsOfTheManager) {
  for (const auto& file : LMDVD::open(discImage("pal").string())->dvdFiles())
    EXPECT_FALSE(file->title_num() == 0 && file->dvd_read_domain() == 3);
}

/// Absurd numbers at every place of the tables that a disc's information begins with, and of the
/// first that these lead to: nothing breaks, and nothing grows without bound.
TEST(LMDVD, SurvivesAbsurdNumbers) {
  const DiscCopy disc("runs");
  const auto path = disc.path().string();
  int opened = 0;
  for (const char* stem : {"VIDEO_TS", "VTS_01_0"}) {
    const std::string whole = bytesOf(disc.file(std::string(stem) + ".IFO"));
    for (size_t place = 0x3C; place + 4 <= std::min<size_t>(whole.size(), 6 * 2048);
         place += place % 2048 < 0x300 ? 8 : 104) {
      for (const uint32_t value : {0xFFFFFFFFU, 0x0000FFFFU}) {
        disc.patchInformation(stem, place, bigEndian32(value));
        const auto dvd = LMDVD::open(path);
        if (!dvd) continue;
        ++opened;
        for (const auto& source : dvd->titleSources()) EXPECT_GE(source->sector_count(), 0U);
        for (const auto& set : dvd->title_sets())
          for (const auto& title : set->titles()) EXPECT_LE(title->cells().size(), 255U);
      }
      disc.patchInformation(stem, place, whole.substr(place, 4));
    }
  }
  EXPECT_GT(opened, 100);
}

}  // namespace
}  // namespace kestrel::test
