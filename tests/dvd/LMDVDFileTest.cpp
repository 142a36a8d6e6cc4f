#include <gmock/gmock.h>
#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDIO.h>
#include <kestrel/LMDVDMedia.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/Log.h>

#include <fmt/format.h>
#include <array>

#include "tests/dvd/Disc.h"

namespace kestrel::test {
namespace {

TEST(LMDVDMedia, IsCutToTheSectorsAskedFor) {
  const LMDVDMedia run(100, 50, 7);
  const auto cut = run.subMediaAt(140, 20);
  ASSERT_NE(cut, nullptr);
  EXPECT_EQ(cut->start_sector(), 140);
  EXPECT_EQ(cut->sector_count(), 10);
  EXPECT_EQ(cut->vob_id(), 0);
  const auto early = run.subMediaAt(90, 15);
  ASSERT_NE(early, nullptr);
  EXPECT_EQ(early->description(), "start:100 count:5");
}

TEST(LMDVDMedia, IsNoneOutsideItsSectors) {
  const LMDVDMedia run(100, 50);
  EXPECT_EQ(run.subMediaAt(150, 10), nullptr);
  EXPECT_EQ(run.subMediaAt(90, 5), nullptr);
  EXPECT_EQ(run.subMediaAt(90, 10), nullptr);
  EXPECT_EQ(run.subMediaAt(110, 0), nullptr);
}

TEST(LMDVDTitle, CountsSectorsIn32Bits) {
  LMDVDTitle title;
  title.setTitle(4);
  title.setMedias({std::make_shared<LMDVDMedia>(0, 10), std::make_shared<LMDVDMedia>(50, 5)});
  EXPECT_EQ(title.sector_count(), 15U);
  EXPECT_EQ(title.description(), "title:4 count:15");
  title.setMedias({std::make_shared<LMDVDMedia>(0, -1), std::make_shared<LMDVDMedia>(0, 3)});
  EXPECT_EQ(title.sector_count(), 2U);
}

TEST(LMDVDFile, HasTheNameOfItsDomainTitleSetAndPart) {
  const auto name = [](int32_t domain, int32_t title, int32_t part) {
    LMDVDFile file;
    file.setDvd_read_domain(domain);
    file.setTitle_num(title);
    file.setFile_part(part);
    return file.filename();
  };
  EXPECT_EQ(name(0, 0, 0), "VIDEO_TS/VIDEO_TS.IFO");
  EXPECT_EQ(name(1, 0, 0), "VIDEO_TS/VIDEO_TS.BUP");
  EXPECT_EQ(name(2, 0, 0), "VIDEO_TS/VIDEO_TS.VOB");
  EXPECT_EQ(name(3, 0, 0), "VIDEO_TS/VTS_00_1.VOB");
  EXPECT_EQ(name(0, 1, 0), "VIDEO_TS/VTS_01_0.IFO");
  EXPECT_EQ(name(1, 12, 0), "VIDEO_TS/VTS_12_0.BUP");
  EXPECT_EQ(name(2, 1, 0), "VIDEO_TS/VTS_01_0.VOB");
  EXPECT_EQ(name(3, 2, 0), "VIDEO_TS/VTS_02_1.VOB");
  EXPECT_EQ(name(3, 2, 8), "VIDEO_TS/VTS_02_9.VOB");
  EXPECT_EQ(name(4, 1, 0), "VIDEO_TS/");
}

class OpenFile : public testing::Test {
 protected:
  void open(int32_t domain, int32_t title) {
    file_.setDvd(LMDVD::open(discImage("pal").string()));
    file_.setDvd_read_domain(domain);
    file_.setTitle_num(title);
    file_.open();
  }

  std::string content(const std::string& name) const {
    return bytesOf(discFolder("pal") / "VIDEO_TS" / name);
  }

  LMDVDFile file_;
};

TEST_F(OpenFile, ReadsBytesOfAnInformationFile) {
  open(0, 1);
  ASSERT_TRUE(file_.isOpen());
  std::string bytes(5, '\0');
  ASSERT_EQ(file_.read(bytes.data(), 3, 5), 5);
  EXPECT_EQ(bytes, content("VTS_01_0.IFO").substr(3, 5));
  file_.setOffset(4);
  ASSERT_EQ(file_.read(bytes.data(), 3, 5), 5);
  EXPECT_EQ(bytes, content("VTS_01_0.IFO").substr(7, 5));
  file_.close();
  EXPECT_FALSE(file_.isOpen());
}

TEST_F(OpenFile, ReadsWholeBlocksOfVobs) {
  open(3, 1);
  ASSERT_TRUE(file_.isOpen());
  std::string bytes(4096, '\0');
  ASSERT_EQ(file_.read(bytes.data(), 4097, 4096), 4096);
  EXPECT_EQ(bytes, content("VTS_01_1.VOB").substr(4096, 4096));
  ASSERT_EQ(file_.read(bytes.data(), 0, 2049), 2048);
}

TEST_F(OpenFile, StaysClosedWhereThereIsNoFile) {
  open(2, 1);  // this title set has no menu
  EXPECT_FALSE(file_.isOpen());
  EXPECT_EQ(file_.dvd_file(), nullptr);
}

TEST_F(OpenFile, DescribesItself) {
  open(3, 2);
  file_.setFile_size(77);
  file_.setOffset(5);
  EXPECT_EQ(file_.description(),
            fmt::format("{} VIDEO_TS/VTS_02_1.VOB 77 5", static_cast<const void*>(&file_)));
}

std::vector<std::string> dumpOf(const std::filesystem::path& path) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  LMDVDIO::test(path.string());
  setLogSink(nullptr);
  return lines;
}

TEST(LMDVDIO, DumpsTheVolumesStructure) {
  const auto lines = dumpOf(discImage("pal"));
  ASSERT_GE(lines.size(), 7U);
  EXPECT_TRUE(lines[0].starts_with("dvd 0x"));
  EXPECT_TRUE(lines[0].ends_with(" KESTREL_PAL"));
  EXPECT_EQ(lines[1], "title_sets 2 Region 0xff");
  EXPECT_EQ(lines[2], "title_set_nr 1 1 4 angle:1");
  EXPECT_EQ(lines[5], "title_set_nr 2 1 1 angle:1");
  const auto vobs = std::filesystem::file_size(discFolder("pal") / "VIDEO_TS" / "VTS_01_1.VOB");
  EXPECT_EQ(lines[6], fmt::format("-----title_set 1 size {} part 1", vobs / 1048576));
  EXPECT_EQ(lines[7], "+++++++title_set 1 program:4 cell:4 pgc:0");
  EXPECT_THAT(lines[8], testing::MatchesRegex("vob_id:1 cell_nr:1 sector:0 [0-9]+ time:00:02"));
  EXPECT_EQ(lines[12], "time:00:00:08");
  EXPECT_THAT(lines, testing::Contains(testing::MatchesRegex("vob:1 cell:1 cell:0 [0-9]+")));
  EXPECT_THAT(lines, testing::Contains(testing::MatchesRegex(
                         fmt::format("media 0x[0-9a-f]+ blocks {}", vobs / 2048))));
}

TEST(LMDVDIO, DumpsWhatIsThere) {
  EXPECT_THAT(dumpOf("/nowhere"), testing::ElementsAre("dvd 0x0 "));
  const DiscCopy disc("pal");
  std::filesystem::remove(disc.file("VTS_02_1.VOB"));
  EXPECT_THAT(dumpOf(disc.path()), testing::Contains("-----title_set 2 error"));
}

TEST(LMDVDFile, ReadsNothingThatMakesNoSense) {
  std::array<char, 2048> bytes{};
  LMDVDFile without;
  without.open();
  EXPECT_FALSE(without.isOpen());
  EXPECT_LT(without.read(bytes.data(), 0, 2048), 0);
  without.setDvd(std::make_shared<LMDVD>());
  without.open();
  EXPECT_FALSE(without.isOpen());

  for (const auto& file : LMDVD::open(discImage("pal"))->filesOfTitleSet(1)) {
    EXPECT_LT(file->read(bytes.data(), 0, 2048), 0);  // not open yet
    file->open();
    ASSERT_TRUE(file->isOpen());
    EXPECT_LT(file->read(bytes.data(), 0, -1), 0);
    EXPECT_LT(file->read(bytes.data(), 0, INT32_MIN), 0);
    EXPECT_LT(file->read(bytes.data(), -2048, 2048), 0);
    EXPECT_LT(file->read(nullptr, 0, 2048), 0);
    EXPECT_EQ(file->read(bytes.data(), 0, 0), 0);
    EXPECT_EQ(file->read(bytes.data(), 0, 2048), 2048);
  }
}

}  // namespace
}  // namespace kestrel::test
