#include <gmock/gmock.h>
#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/EffectSheet.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Sprites.h>
#include <kestrel/convert/Thumbnail.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using Sides = std::pair<int, int>;

/// Files drawn of a movie of two seconds, 320x180 at 25 pictures a second.
class PictureFiles : public testing::Test {
 protected:
  template <typename Settings>
  Settings settings(const std::string& output) const {
    Settings settings;
    settings.input = fixture("av25.mp4").string();
    settings.output = (folder_ / output).string();
    return settings;
  }

  Sides sizeOf(const std::string& output) const {
    const auto stream = ffprobeJson(folder_ / output).at("streams").at(0);
    return {stream.at("width"), stream.at("height")};
  }

  /// Kind and subject of the failure that `work` ends with.
  static std::pair<std::optional<Failure::Kind>, std::string> failureOf(
      const std::function<void()>& work) {
    try {
      work();
    } catch (const Failure& failure) {
      return {failure.kind(), failure.subject()};
    }
    return {};
  }

  bool isEmpty() const { return fs::is_empty(folder_.path()); }

  const TempDir folder_;
};

TEST_F(PictureFiles, ThumbnailIsAsLargeAsThePictureOrFitsTheBox) {
  auto thumbnail = settings<ThumbnailSettings>("a.png");
  EXPECT_TRUE(writeThumbnail(thumbnail).isWhole());
  EXPECT_EQ(sizeOf("a.png"), Sides(320, 180));
  thumbnail.replaces = true;
  thumbnail.size = {.width = 100, .height = 100};
  writeThumbnail(thumbnail);
  EXPECT_EQ(sizeOf("a.png"), Sides(100, 56));
  thumbnail.look.zoom = Zoom::kFit;
  writeThumbnail(thumbnail);
  EXPECT_EQ(sizeOf("a.png"), Sides(100, 100));
}

TEST_F(PictureFiles, ThumbnailOfATimeBehindTheEndIsRefusedByItsName) {
  auto thumbnail = settings<ThumbnailSettings>("a.png");
  thumbnail.time = 2'100'000;
  EXPECT_EQ(failureOf([&] { writeThumbnail(thumbnail); }),
            std::pair(std::optional(Failure::Kind::kSettings), std::string("time")));
  EXPECT_TRUE(isEmpty());
}

TEST_F(PictureFiles, AnExistingTargetStays) {
  const auto sprites = settings<SpritesSettings>("a.png");
  std::ofstream(folder_ / "a.vtt") << "mine";
  EXPECT_EQ(failureOf([&] { writeSprites(sprites); }).first, Failure::Kind::kExists);
  EXPECT_FALSE(fs::exists(folder_ / "a.png"));
  EXPECT_EQ(fs::file_size(folder_ / "a.vtt"), 4u);
}

TEST_F(PictureFiles, ContactSheetTellsHowFarItIs) {
  auto sheet = settings<ContactSheetSettings>("a.png");
  sheet.columns = 2;
  sheet.rows = 2;
  std::vector<double> times;
  writeContactSheet(sheet, {.progress = [&](const Progress& progress) {
                      times.push_back(progress.time);
                      EXPECT_EQ(progress.pictures, static_cast<int64_t>(times.size()));
                      EXPECT_DOUBLE_EQ(progress.duration.value_or(0), 2);
                    }});
  EXPECT_THAT(times, testing::ElementsAre(0.25, 0.75, 1.25, 1.75));
  // Two pictures as they are, and gaps of a fortieth of their width.
  EXPECT_EQ(sizeOf("a.png").first, 8 + 2 * (320 + 8));
}

TEST_F(PictureFiles, PacketsThatCannotBeDecodedAreToldOf) {
  // One key picture and 299 that need it.
  const fs::path clip = fixture("numbered25-one-key.mp4");
  const auto probed = ffprobeJson(clip, {"-show_packets", "-select_streams", "v"});
  const fs::path damaged = folder_ / "damaged.mp4";
  fs::copy(clip, damaged);
  fs::permissions(damaged, fs::perms::owner_write, fs::perm_options::add);
  std::fstream file(damaged, std::ios::binary | std::ios::in | std::ios::out);
  for (const size_t number : {20, 60, 100}) {
    const auto& packet = probed.at("packets").at(number);
    file.seekp(std::stol(packet.at("pos").get<std::string>()));
    file << std::string(std::stoul(packet.at("size").get<std::string>()), '\xff');
  }
  file.close();
  auto sheet = settings<ContactSheetSettings>("a.png");
  sheet.input = clip.string();
  EXPECT_TRUE(writeContactSheet(sheet).isWhole());
  sheet.input = damaged.string();
  sheet.replaces = true;
  EXPECT_THAT(writeContactSheet(sheet).findings,
              testing::ElementsAre("'" + damaged.string() +
                                   "' is damaged: 3 of its packets could not be decoded"));
}

TEST_F(PictureFiles, ContactSheetHasAPictureAtLeast) {
  auto sheet = settings<ContactSheetSettings>("a.png");
  sheet.rows = 0;
  EXPECT_EQ(failureOf([&] { writeContactSheet(sheet); }).first, Failure::Kind::kSettings);
}

TEST_F(PictureFiles, InterruptedSheetLeavesNothing) {
  const auto sheet = settings<ContactSheetSettings>("a.png");
  EXPECT_EQ(failureOf([&] { writeContactSheet(sheet, {.interrupt = [] { return true; }}); }).first,
            Failure::Kind::kInterrupted);
  EXPECT_TRUE(isEmpty());
}

TEST_F(PictureFiles, SpritesComeWithATextThatSaysWhichIsWhere) {
  writeSprites(settings<SpritesSettings>("a.png"));
  EXPECT_EQ(sizeOf("a.png"), Sides(2 * 160, 90));
  std::ifstream file(folder_ / "a.vtt");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(text,
            "WEBVTT\n"
            "\n00:00:00.000 --> 00:00:01.000\na.png#xywh=0,0,160,90\n"
            "\n00:00:01.000 --> 00:00:02.000\na.png#xywh=160,0,160,90\n");
}

TEST_F(PictureFiles, SpritesAreSomeTimeApart) {
  auto sprites = settings<SpritesSettings>("a.png");
  sprites.every = 0;
  EXPECT_EQ(failureOf([&] { writeSprites(sprites); }).second, "every");
  EXPECT_TRUE(isEmpty());
}

TEST_F(PictureFiles, EffectSheetHasFiveColumns) {
  EXPECT_TRUE(writeEffectSheet(settings<EffectSheetSettings>("a.jpg")).isWhole());
  EXPECT_EQ(sizeOf("a.jpg").first, 8 + 5 * (320 + 8));
}

TEST_F(PictureFiles, NamesThatAreNoPicturesAreRefusedFirst) {
  auto thumbnail = settings<ThumbnailSettings>("a.gif");
  thumbnail.input = "nowhere.mp4";
  EXPECT_EQ(failureOf([&] { writeThumbnail(thumbnail); }).first, Failure::Kind::kSettings);
}

}  // namespace
}  // namespace kestrel::test
