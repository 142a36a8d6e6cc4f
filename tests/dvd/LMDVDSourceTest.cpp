#include <gmock/gmock.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/dvd/Disc.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int64_t kSecond = 1000000;
constexpr int32_t kSizeQuery = 0x10000;

/// A source of the first sectors of the first title set of a disc.
class RunOfTenSectors : public testing::Test {
 protected:
  void SetUp() override {
    source_->setDvd(dvd_);
    source_->setTitle_set(dvd_->title_sets()[0]);
    source_->setTitle(dvd_->title_sets()[0]->titles()[0]);
    source_->setMedia(std::make_shared<LMDVDMedia>(5, 10));
    ASSERT_NE(source_->avio_context(), nullptr);
  }

  std::string content(size_t offset, size_t size) const {
    return bytesOf(discFolder("pal") / "VIDEO_TS" / "VTS_01_1.VOB").substr(5 * 2048 + offset, size);
  }

  /// What one read of `size` bytes at `offset` delivers.
  std::string read(int64_t offset, int32_t size) {
    std::string bytes(static_cast<size_t>(size), '\0');
    source_->seek(offset, SEEK_SET);
    const int32_t count = source_->read_packet(reinterpret_cast<uint8_t*>(bytes.data()), size);
    EXPECT_EQ(source_->read_offset(), offset + count);
    bytes.resize(static_cast<size_t>(count));
    return bytes;
  }

  const std::shared_ptr<LMDVD> dvd_ = LMDVD::open(discFolder("pal").string());
  const std::shared_ptr<LMDVDSource> source_ = std::make_shared<LMDVDSource>();
};

TEST_F(RunOfTenSectors, HasTenSectors) {
  EXPECT_EQ(source_->sector_count(), 10U);
  EXPECT_EQ(source_->filesize(), 20480);
  EXPECT_EQ(source_->seek(0, kSizeQuery), 20480);
  EXPECT_EQ(source_->read_offset(), 0);
  EXPECT_EQ(source_->blocks(),
            fs::file_size(discFolder("pal") / "VIDEO_TS" / "VTS_01_1.VOB") / 2048);
}

TEST_F(RunOfTenSectors, SeeksWithoutALimit) {
  EXPECT_EQ(source_->seek(100, SEEK_SET), 100);
  EXPECT_EQ(source_->seek(-30, SEEK_CUR), 70);
  EXPECT_EQ(source_->seek(5, SEEK_END), 20485);
  EXPECT_EQ(source_->seek(0, 3), -ENOSYS);
  EXPECT_EQ(source_->read_offset(), 20485);
}

TEST_F(RunOfTenSectors, ReadsWholeBlocks) {
  EXPECT_EQ(read(0, 4096), content(0, 4096));
  EXPECT_EQ(read(2048, 5000), content(2048, 4096));
  EXPECT_EQ(read(2048, 1000000), content(2048, 9 * 2048));
}

TEST_F(RunOfTenSectors, ReadsTheRestOfABlockFromWithin) {
  EXPECT_EQ(read(1000, 4096), content(1000, 1048));
  EXPECT_EQ(read(1000, 48), content(1000, 48));
  EXPECT_EQ(read(4096, 100), content(4096, 100));
}

TEST_F(RunOfTenSectors, ReadsNothingAtItsEnd) {
  EXPECT_EQ(read(20480, 4096), "");
  EXPECT_EQ(read(30000, 4096), "");
  EXPECT_EQ(read(-5, 4096), "");
  EXPECT_FALSE(source_->lastError());
}

TEST_F(RunOfTenSectors, ReadsBlocksUpToItsEnd) {
  std::string bytes(20 * 2048, '\0');
  auto* data = reinterpret_cast<uint8_t*>(bytes.data());
  EXPECT_EQ(source_->readBlock(8, 20, data), 2);
  EXPECT_EQ(bytes.substr(0, 4096), content(8 * 2048, 4096));
  EXPECT_EQ(source_->readBlock(10, 1, data), 0);
  EXPECT_EQ(source_->readBlock(4000000000U, 1, data), 0);
  EXPECT_EQ(source_->readBlock(0, 0, data), 0);
  EXPECT_EQ(source_->readBlock(0, -1, data), 0);
}

TEST_F(RunOfTenSectors, KeepsOneContext) {
  EXPECT_EQ(source_->avio_context(), source_->io_context());
}

TEST_F(RunOfTenSectors, ItsCopyReadsByItself) {
  source_->seek(7, SEEK_SET);
  const auto copy = std::dynamic_pointer_cast<LMDVDSource>(source_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->dvd(), dvd_);
  EXPECT_EQ(copy->media(), source_->media());
  EXPECT_EQ(copy->title(), source_->title());
  EXPECT_EQ(copy->title_set(), source_->title_set());
  EXPECT_EQ(copy->reader(), nullptr);
  EXPECT_EQ(copy->io_context(), nullptr);
  EXPECT_EQ(copy->read_offset(), 0);
}

TEST(LMDVDSource, AnswersForItsTitle) {
  const TempDir folder;
  fs::copy(discFolder("pal"), folder / "MOVIE", fs::copy_options::recursive);
  const auto dvd = LMDVD::open((folder / "MOVIE").string());
  const auto sources = dvd->titleSources();
  ASSERT_THAT(sources, SizeIs(4));
  EXPECT_EQ(sources[0]->name(), "MOVIE_1_1");
  EXPECT_EQ(sources[3]->name(), "MOVIE_2_1");
  EXPECT_TRUE(sources[0]->isDVD());
  EXPECT_EQ(sources[0]->path(), dvd->path());
  EXPECT_EQ(sources[0]->palette(), dvd->title_sets()[0]->titles()[0]->palette());
  EXPECT_EQ(sources[0]->audioNames(), dvd->title_sets()[0]->audioLanguages());
  EXPECT_EQ(sources[0]->subtitleNames(), dvd->title_sets()[0]->subtitleLanguages());
  EXPECT_EQ(sources[1]->sector_count(), dvd->title_sets()[0]->titles()[1]->sector_count());
}

TEST(LMDVDSource, WithoutVobsReadsNothing) {
  const DiscCopy disc("ntsc");
  fs::remove(disc.file("VTS_01_1.VOB"));
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(1));
  const auto source = dvd->titleSources().at(0);
  EXPECT_NE(source->avio_context(), nullptr);
  EXPECT_EQ(source->reader(), nullptr);
  uint8_t byte = 0;
  EXPECT_EQ(source->read_packet(&byte, 1), 0);
  EXPECT_THAT(source->createMedias(), IsEmpty());
}

TEST(LMDVDSource, AFailedReadIsTheEndAndIsSaid) {
  const DiscCopy disc("ntsc");
  const auto dvd = LMDVD::open(disc.path().string());
  const auto source = dvd->titleSources().at(0)->dvdMediaSources().at(0);
  disc.cut("VTS_01_1.VOB", 20 * 2048);
  source->avio_context();
  std::vector<uint8_t> bytes(100 * 2048);
  EXPECT_EQ(source->read_packet(bytes.data(), 100 * 2048), 20 * 2048);
  EXPECT_EQ(source->read_packet(bytes.data(), 2048), 0);
  EXPECT_TRUE(source->lastError());
}

TEST(LMDVDSource, MakesAMediaOfEachRunThatIsLongEnough) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto source = dvd->titleSources().at(1);
  ASSERT_THAT(source->dvdMediaSources(), SizeIs(3));
  // 3 s, 0.08 s and 3 s: the second is dropped.
  const auto medias = source->createMedias();
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_EQ(medias[0]->movie_position(), 0);
  // A run ends with its sound, which lasts a few milliseconds longer than the pictures.
  EXPECT_NEAR(static_cast<double>(medias[0]->duration()), 3 * kSecond, 10000);
  EXPECT_EQ(medias[1]->movie_position(), medias[0]->duration());
  for (const auto& media : medias) {
    EXPECT_TRUE(media->hasVideo());
    EXPECT_THAT(media->audios(), SizeIs(3));
  }
}

TEST(LMDVDSource, OpensWhateverTheDiscIsCalled) {
  const TempDir folder;
  fs::copy_file(discImage("pal"), folder / "disc.jpg");
  const auto medias =
      LMDVD::open((folder / "disc.jpg").string())->titleSources().at(3)->createMedias();
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->videoStream()->codecName(), "mpeg2video");
}

TEST(LMDVDSource, ASourceOfOneRunMakesOneMedia) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto runs = dvd->titleSources().at(1)->dvdMediaSources();
  EXPECT_THAT(runs[1]->createMedias(), IsEmpty());
  const auto medias = runs[2]->createMedias();
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->source(), runs[2]);
  EXPECT_EQ(medias[0]->movie_position(), 0);
}

TEST(LMDVDSource, ItsTracksAreSelectedByTheLowFourBitsOfTheirIds) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  LMFFMovie movie;
  movie.openMedias(dvd->titleSources().at(0)->createMedias());
  ASSERT_THAT(movie.medias(), SizeIs(1));
  movie.setSelectAudioStreams(IndexSet{2});
  ASSERT_THAT(movie.medias()[0]->audios(), SizeIs(1));
  EXPECT_EQ(movie.medias()[0]->audioStream()->codecName(), "mp2");
  movie.setSelectAudioStreams(IndexSet{1});
  ASSERT_THAT(movie.medias()[0]->audios(), SizeIs(1));
  EXPECT_EQ(movie.medias()[0]->audioStream()->channels(), 6);
  EXPECT_EQ(movie.audioStreams(), dvd->title_sets()[0]->audioLanguages());
}

TEST(LMDVDSource, TellsWhatThePicturesAre) {
  const auto pal = LMDVD::open(discImage("pal").string())->titleSources();
  EXPECT_EQ(pal.at(0)->pictureFacts(), (LMDVDPictureFacts{720, 576, {16, 9}, {25, 1}}));
  EXPECT_EQ(pal.at(3)->pictureFacts(), (LMDVDPictureFacts{720, 576, {4, 3}, {25, 1}}));
  const auto ntsc = LMDVD::open(discFolder("ntsc").string())->titleSources();
  EXPECT_EQ(ntsc.at(0)->pictureFacts(), (LMDVDPictureFacts{720, 480, {4, 3}, {30000, 1001}}));
}

TEST(LMDVDThreads, SourcesOfOneImageDoNotMixTheirSectors) {
  const auto dvd = LMDVD::open(discImage("pal"));
  const auto expected = bytesOf(discFolder("pal") / "VIDEO_TS" / "VTS_01_1.VOB");
  const auto set = dvd->title_sets().at(0);
  const auto blocks = static_cast<uint32_t>(expected.size() / 2048);
  // Each reads single blocks from all over the title, the one upwards, the other downwards.
  const auto countWrong = [&](bool isUpwards) {
    LMDVDSource source;
    source.setDvd(dvd);
    source.setTitle_set(set);
    source.setMedia(std::make_shared<LMDVDMedia>(0, static_cast<int32_t>(blocks)));
    source.avio_context();
    std::array<uint8_t, 2048> bytes{};
    int wrong = 0;
    for (int round = 0; round < 20; ++round)
      for (uint32_t i = 0; i < blocks; ++i) {
        const uint32_t block = isUpwards ? i : blocks - 1 - i;
        const bool isRight =
            source.readBlock(block, 1, bytes.data()) == 1 &&
            std::memcmp(bytes.data(), expected.data() + size_t{block} * 2048, 2048) == 0;
        wrong += isRight ? 0 : 1;
      }
    return wrong;
  };
  int upwards = -1;
  int downwards = -1;
  {
    const std::jthread one([&] { upwards = countWrong(true); });
    const std::jthread other([&] { downwards = countWrong(false); });
  }
  EXPECT_EQ(upwards, 0);
  EXPECT_EQ(downwards, 0);
}

TEST(LMDVDUnopened, SourcesWithoutAVolumeOrATitleReadNothing) {
  const auto unopened = std::make_shared<LMDVD>();
  EXPECT_THAT(unopened->dvdFiles(), IsEmpty());
  EXPECT_THAT(unopened->titleSources(), IsEmpty());
  for (const auto& dvd : {std::shared_ptr<LMDVD>(), unopened}) {
    LMDVDTitleSource title(dvd, std::make_shared<LMDVDTitleSet>(), std::make_shared<LMDVDTitle>());
    LMDVDTitleSource none(dvd, nullptr, nullptr);
    LMDVDSource source;
    source.setDvd(dvd);
    source.setTitle_set(std::make_shared<LMDVDTitleSet>());
    for (LMMediaSource* input :
         {static_cast<LMMediaSource*>(&title), static_cast<LMMediaSource*>(&none),
          static_cast<LMMediaSource*>(&source)}) {
      input->open();
      EXPECT_FALSE(input->isOpen());
      EXPECT_TRUE(input->lastError());
      input->name();
      EXPECT_EQ(input->path(), "");
      input->palette();
      input->audioNames();
      input->subtitleNames();
    }
    EXPECT_THAT(none.chapterTimes(), IsEmpty());
    EXPECT_TRUE(none.problem());
  }
}

}  // namespace
}  // namespace kestrel::test
