#include <gmock/gmock.h>
#include <kestrel/LMDVD.h>
#include <kestrel/LibMedia.h>

#include "dvd/TitleSetReader.h"
#include "tests/dvd/Disc.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string english(const std::string& code) { return LibMedia::displayStringForLanguage(code); }

TEST(LMDVDAttributes, TakesStandardAndAspectFromTheFirstAttributeByteAsItIsDefined) {
  const auto byteOf = [](const fs::path& disc) {
    return static_cast<uint8_t>(bytesOf(disc / "VIDEO_TS" / "VTS_01_0.IFO")[0x200]);
  };
  // MPEG-2, PAL, 16:9, letterboxed: 01 01 11 and two bits more.
  ASSERT_EQ(byteOf(discFolder("pal")) >> 2, 0b010111);
  const auto pal = LMDVD::open(discFolder("pal").string())->title_sets();
  EXPECT_EQ(pal[0]->dvdFormat(), std::nullopt);             // bits 2 and 3: 3
  EXPECT_EQ(pal[0]->display_aspect_ratio(), std::nullopt);  // bits 4 and 5: 1
  EXPECT_EQ(pal[1]->dvdFormat(), "ntsc");                   // 4:3 stands there as 0

  ASSERT_EQ(byteOf(discFolder("ntsc")) >> 2, 0b010000);
  const auto ntsc = LMDVD::open(discFolder("ntsc").string())->title_sets();
  EXPECT_EQ(ntsc[0]->dvdFormat(), "ntsc");
  EXPECT_EQ(ntsc[0]->display_aspect_ratio(), "4:3");
}

TEST(LMDVDAttributes, EveryValueOfStandardAndAspectHasItsName) {
  const DiscCopy disc("ntsc");
  const std::vector<std::optional<std::string>> formats{"ntsc", "pal", std::nullopt, std::nullopt};
  const std::vector<std::optional<std::string>> aspects{"4:3", std::nullopt, std::nullopt, "16:9"};
  for (unsigned value = 0; value < 4; ++value) {
    disc.patchInformation("VTS_01_0", 0x200,
                          std::string(1, static_cast<char>(0x40 | value << 4 | value << 2)));
    const auto dvd = LMDVD::open(disc.path().string());
    ASSERT_THAT(dvd->title_sets(), SizeIs(1)) << value;
    EXPECT_EQ(dvd->title_sets()[0]->dvdFormat(), formats[value]) << value;
    EXPECT_EQ(dvd->title_sets()[0]->display_aspect_ratio(), aspects[value]) << value;
  }
}

TEST(LMDVDAttributes, NamesTheLanguages) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto& set = *dvd->title_sets()[0];
  EXPECT_THAT(set.audioLanguages(), ElementsAre(english("en"), english("fr"), english("de")));
  EXPECT_THAT(set.subtitleLanguages(), ElementsAre(english("en"), english("fr")));
  EXPECT_EQ(set.description(), "format:(null) aspect_ratio:(null) audios:(" + english("en") + ", " +
                                   english("fr") + ", " + english("de") + ") subtitle:(" +
                                   english("en") + ", " + english("fr") + ")");
}

TEST(LMDVDAttributes, ALanguageCodeIsTwoLettersAndNoneTwoNuls) {
  EXPECT_EQ(lettersOf(0x656E), "en");
  EXPECT_EQ(lettersOf(0xFF65),
            "\xFF"
            "e");
  EXPECT_EQ(lettersOf(0xFFFF), std::string(2, '\0'));
  EXPECT_EQ(lettersOf(0x0000), std::string(2, '\0'));
}

TEST(LMDVDAttributes, AnUnknownLanguageIsShownAsThatOfNoLetters) {
  const DiscCopy disc("ntsc");
  // The language of sound 0 stands at 0x204 + 2.
  disc.patchInformation("VTS_01_0", 0x206, "\xFF\xFF");
  const auto dvd = LMDVD::open(disc.path().string());
  ASSERT_THAT(dvd->title_sets(), SizeIs(1));
  EXPECT_THAT(dvd->title_sets()[0]->audioLanguages(), ElementsAre(english("")));
  ASSERT_THAT(dvd->title_sets()[0]->titles()[0]->audioTracks(), SizeIs(1));
  EXPECT_EQ(dvd->title_sets()[0]->titles()[0]->audioTracks()[0].language, "");
}

TEST(LMDVDAttributes, ListsTheTracksOfEachTitle) {
  const auto dvd = LMDVD::open(discFolder("pal").string());
  const auto& title = *dvd->title_sets()[0]->titles()[0];
  EXPECT_THAT(title.audioTracks(),
              ElementsAre(LMDVDTrack{0, 0x80, "en", english("en"), 2, 48000, "ac3"},
                          LMDVDTrack{1, 0x81, "fr", english("fr"), 6, 48000, "ac3"},
                          LMDVDTrack{2, 0x1C2, "de", english("de"), 2, 48000, "mp2"}));
  EXPECT_THAT(title.subtitleTracks(),
              ElementsAre(LMDVDTrack{0, 0x20, "en", english("en"), 0, 0, "dvd_subtitle"},
                          LMDVDTrack{1, 0x21, "fr", english("fr"), 0, 0, "dvd_subtitle"}));
  EXPECT_THAT(dvd->title_sets()[0]->titles()[1]->subtitleTracks(), IsEmpty());
}

// Of a title set, the attributes of the pictures stand at 0x200, those of its sound at 0x204, eight
// bytes each, and of its subpictures at 0x256, six bytes each.
constexpr size_t kPictureAttributes = 0x200;
constexpr size_t kSoundAttributes = 0x204;
constexpr size_t kSubpictureAttributes = 0x256;
constexpr size_t kSoundKind = 5;
constexpr size_t kSubpictureKind = 5;

TEST(LMDVDAttributes, TellsForWhomTracksAre) {
  using Kind = LMDVDTrackKind;
  const DiscCopy disc("pal");
  const auto kindsOf = [&](const std::vector<LMDVDTrack>& tracks) {
    std::vector<Kind> kinds;
    for (const auto& track : tracks) kinds.push_back(track.kind);
    return kinds;
  };
  const auto kinds = [&](const std::string& sound, const std::string& subpictures) {
    for (size_t i = 0; i < sound.size(); ++i)
      disc.patchInformation("VTS_01_0", kSoundAttributes + 8 * i + kSoundKind, {sound[i]});
    for (size_t i = 0; i < subpictures.size(); ++i)
      disc.patchInformation("VTS_01_0", kSubpictureAttributes + 6 * i + kSubpictureKind,
                            {subpictures[i]});
    const auto dvd = LMDVD::open(disc.path().string());
    const auto& title = *dvd->title_sets()[0]->titles()[0];
    auto all = kindsOf(title.audioTracks());
    for (const Kind kind : kindsOf(title.subtitleTracks())) all.push_back(kind);
    return all;
  };
  EXPECT_THAT(kinds("\1\2\3", "\1\2"), ElementsAre(Kind::kNormal, Kind::kVisuallyImpaired,
                                                   Kind::kCommentary, Kind::kNormal, Kind::kLarge));
  EXPECT_THAT(kinds("\4\5\x80", "\3\5"),
              ElementsAre(Kind::kAlternateCommentary, Kind::kUnspecified, Kind::kUnspecified,
                          Kind::kChildren, Kind::kCaptions));
  EXPECT_THAT(kinds("", "\6\7"), testing::Contains(Kind::kLargeCaptions).Times(1));
  EXPECT_EQ(kinds("", "\x9\xD")[3], Kind::kForced);
  EXPECT_EQ(kinds("", "\x9\xD")[4], Kind::kCommentary);
  EXPECT_EQ(kinds("", "\xE\xF")[3], Kind::kLargeCommentary);
  EXPECT_EQ(kinds("", "\xE\xF")[4], Kind::kChildrensCommentary);
  EXPECT_EQ(kinds("", "\x4\x10")[3], Kind::kUnspecified);
  EXPECT_EQ(kinds("", "\x4\x10")[4], Kind::kUnspecified);
}

TEST(LMDVDAttributes, TellsTheFormatOfSound) {
  const DiscCopy disc("pal");
  const auto first = [&](const std::string& attributes) {
    disc.patchInformation("VTS_01_0", kSoundAttributes, attributes);
    return LMDVD::open(disc.path().string())->title_sets()[0]->titles()[0]->audioTracks()[0];
  };
  // LPCM of 24 bits, 96 kHz, eight channels.
  const LMDVDTrack linear = first("\x80\x97");
  EXPECT_EQ(linear.codec, "pcm_dvd");
  EXPECT_EQ(linear.bits, 24);
  EXPECT_EQ(linear.sample_rate, 96000);
  EXPECT_EQ(linear.channels, 8);
  EXPECT_FALSE(linear.isSurround);
  EXPECT_EQ(first("\x80\x40").bits, 20);
  EXPECT_EQ(first("\xC0\x40").bits, 0);
  EXPECT_EQ(first("\xC0\x40").codec, "dts");
  EXPECT_EQ(first("\x40\x40").codec, "mp2");
  disc.patchInformation("VTS_01_0", kSoundAttributes + 7, "\x08");
  EXPECT_FALSE(first(std::string("\0\1", 2)).isSurround);
  EXPECT_TRUE(first(std::string("\2\1", 2)).isSurround);
}

TEST(LMDVDAttributes, TellsHowPicturesAreMade) {
  const DiscCopy disc("pal");
  const auto video = [&](const std::string& attributes) {
    disc.patchInformation("VTS_01_0", kPictureAttributes, attributes);
    return LMDVD::open(disc.path().string())->title_sets()[0]->titles()[0]->video();
  };
  LMDVDVideo wanted{"mpeg2video", "PAL", 720, 576, {16, 9}};
  wanted.allowsLetterbox = true;
  EXPECT_EQ(video(std::string("\x5E\0", 2)), wanted);
  wanted.allowsPanScan = true;
  wanted.isFilm = true;
  EXPECT_EQ(video("\x5C\x01"), wanted);
  wanted = {"mpeg1video", "NTSC", 352, 240, {4, 3}};
  wanted.isLetterboxed = true;
  wanted.hasCaptions = true;
  EXPECT_EQ(video("\x03\x8E"), wanted);
}

}  // namespace
}  // namespace kestrel::test
