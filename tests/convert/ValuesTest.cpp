#include <kestrel/convert/Values.h>

#include <gtest/gtest.h>
#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>

#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// The text values that a parser must refuse, each by a failure of usage that names option and
/// value.
template <class Parser>
void expectRefused(Parser parse, std::initializer_list<std::string> values) {
  for (const std::string& value : values) {
    try {
      parse("--option", value);
      ADD_FAILURE() << "'" << value << "' was accepted";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
      EXPECT_TRUE(std::string(failure.what()).starts_with("--option: '" + value + "' is not a "))
          << std::string(failure.what());
    }
  }
}

TEST(ParseTime, TakesSeconds) {
  EXPECT_EQ(parseTime("--start", "0"), 0);
  EXPECT_EQ(parseTime("--start", "90"), 90'000'000);
  EXPECT_EQ(parseTime("--start", "12.5"), 12'500'000);
  EXPECT_EQ(parseTime("--start", "7200.000001"), 7'200'000'001);
}

TEST(ParseTime, TakesMinutesAndHours) {
  EXPECT_EQ(parseTime("--start", "1:02"), 62'000'000);
  EXPECT_EQ(parseTime("--start", "90:00"), 5'400'000'000);
  EXPECT_EQ(parseTime("--start", "01:02:03.250"), 3'723'250'000);
  EXPECT_EQ(parseTime("--start", "100:00:00"), 360'000'000'000);
}

TEST(ParseTime, RoundsToTheMicrosecond) {
  EXPECT_EQ(parseTime("--start", "0.0000014"), 1);
  EXPECT_EQ(parseTime("--start", "0.0000016"), 2);
  EXPECT_EQ(parseTime("--start", "1.9999999"), 2'000'000);
}

TEST(ParseTime, TakesUnits) {
  EXPECT_EQ(parseTime("--start", "90s"), 90'000'000);
  EXPECT_EQ(parseTime("--start", "1m30s"), 90'000'000);
  EXPECT_EQ(parseTime("--start", "2m"), 120'000'000);
  EXPECT_EQ(parseTime("--start", "1h0m0.25s"), 3'600'250'000);
  EXPECT_EQ(parseTime("--start", "1.5h"), 5'400'000'000);
  EXPECT_EQ(parseTime("--start", "1s250ms"), 1'250'000);
}

TEST(ParseTime, RefusesUnitsOutOfOrderTwiceOrBroken) {
  expectRefused(parseTime, {"s", "1s1m", "1m1m", "1.5m3s", "1m30", "m30s", "1:30s", "-1s",
                            "99999999h", "1s5", "1 m", "1M"});
}

TEST(ParseTime, RefusesEverythingElse) {
  expectRefused(parseTime, {"",        " ",
                            "1 ",      " 1",
                            "-1",      "+1",
                            "1x",      "abc",
                            "1.2.3",   "1.",
                            ":30",     "1:",
                            "1:60",    "1:60:00",
                            "1:2:3:4", "1,5",
                            "1e3",     "nan",
                            "inf",     "0x10",
                            ".",       "99999999999999999999",
                            "1:-5",    "0.-5"});
}

TEST(ParseMoment, TakesTimesAndShares) {
  EXPECT_EQ(parseMoment("--start", "1:30.5"), Moment(90'500'000));
  EXPECT_EQ(parseMoment("--start", "1m30s"), Moment(90'000'000));
  EXPECT_EQ(parseMoment("--start", "50%"), Moment::ofShare(0.5));
  EXPECT_EQ(parseMoment("--start", "12.5%"), Moment::ofShare(0.125));
  expectRefused(parseMoment, {"", "%", "101%", "-1%", "x%", "1:30%", "noon", "nan%"});
}

TEST(ParseSeconds, TakesNumbersAndTimes) {
  EXPECT_EQ(parseSeconds("--keyframes", "2.5"), 2.5);
  EXPECT_EQ(parseSeconds("--keyframes", "1m30s"), 90);
  EXPECT_EQ(parseSeconds("--keyframes", "500ms"), 0.5);
  EXPECT_EQ(parseSeconds("--keyframes", "-1"), -1);  // out of a range that it does not know
  expectRefused(parseSeconds, {"", "fast", "1:2:3:4", "1m30"});
}

TEST(Moment, IsATimeOrAShareOfALength) {
  EXPECT_EQ(Moment(5).within({}), 5);
  EXPECT_EQ(Moment::ofShare(0.25).within(8'000'000), 2'000'000);
  EXPECT_EQ(Moment::ofShare(0.25).within({}), std::nullopt);
}

TEST(ParseSize, TakesBothSidesOrOne) {
  EXPECT_EQ(parseSize("--size", "1280x720"), (PictureBox{1280, 720}));
  EXPECT_EQ(parseSize("--size", "1280x-"), (PictureBox{1280, {}}));
  EXPECT_EQ(parseSize("--size", "-x720"), (PictureBox{{}, 720}));
}

TEST(ParseSize, TakesLinesAndShares) {
  EXPECT_EQ(parseSize("--size", "1080p"), (PictureBox{.lines = 1080}));
  EXPECT_EQ(parseSize("--size", "50%"), (PictureBox{.scale = 0.5}));
}

TEST(ParseSize, RefusesEverythingElse) {
  expectRefused(parseSize,
                {"",           "1280",        "x",      "-x-",      "1280x",      "x720",
                 "0x0",        "0x720",       "-5x720", "1280X720", "1280x720x3", "1280 x 720",
                 "1280.5x720", "70000x70000", "720",    "p",        "%",          "1p",
                 "720i",       "-50%",        "0%",     "20000%",   "40000p"});
}

TEST(ParseBothSides, TakesNoOpenSideAndNamesTheExample) {
  EXPECT_EQ(parseBothSides("--size", "640x48", "1200x240"), (PictureBox{640, 48}));
  EXPECT_EQ(parseBothSides("--size", "99999x2", "1200x240"), (PictureBox{99999, 2}));
  for (const char* text : {"", "640x-", "-x48", "99999999999x2", "0x48"}) {
    try {
      parseBothSides("--size", text, "1200x240");
      ADD_FAILURE() << text;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.what(),
                "--size: '" + std::string(text) + "' is not a size such as 1200x240");
    }
  }
}

TEST(ParseNumber, IsWithinItsRange) {
  EXPECT_EQ(parseNumber("--x", "-2.5"), -2.5);
  EXPECT_EQ(parseNumber("--x", "10", 0, 10), 10);
  for (const char* text : {"", "1.0.0", "ten", "nan", "inf", "10.1", "-0.1", "1 "})
    EXPECT_THROW(parseNumber("--x", text, 0, 10), Failure) << text;
  EXPECT_EQ(parseWholeNumber("--x", "7", 1, 9), 7);
  for (const char* text : {"", "0", "10", "7.0", "+7", "x"})
    EXPECT_THROW(parseWholeNumber("--x", text, 1, 9), Failure) << text;
}

TEST(ParseRate, TakesTheCustomaryDecimalsOfNtsc) {
  EXPECT_EQ(parseRate("--fps", "29.97"), (Rational{30000, 1001}));
  EXPECT_EQ(parseRate("--fps", "23.976"), (Rational{24000, 1001}));
  EXPECT_EQ(parseRate("--fps", "59.94"), (Rational{60000, 1001}));
}

TEST(ParseRate, TakesWholeNumbersAndFractionsInLowestTerms) {
  EXPECT_EQ(parseRate("--fps", "25"), (Rational{25, 1}));
  EXPECT_EQ(parseRate("--fps", "30000/1001"), (Rational{30000, 1001}));
  EXPECT_EQ(parseRate("--fps", "50/2"), (Rational{25, 1}));
  EXPECT_EQ(parseRate("--fps", "1/10"), (Rational{1, 10}));
}

TEST(ParseRate, RefusesEverythingElse) {
  expectRefused(parseRate, {"", "0", "0/1", "25/0", "/", "25/", "/1", "25/1/1", "-25", "25fps",
                            "29.98", "1001", "99999999999/1", "ntsc"});
}

TEST(ParseAspect, IsWidthByHeight) {
  EXPECT_DOUBLE_EQ(parseAspect("--aspect", "16:9"), 16.0 / 9);
  EXPECT_DOUBLE_EQ(parseAspect("--aspect", "2.39:1"), 2.39);
}

TEST(ParseAspect, RefusesEverythingElse) {
  expectRefused(parseAspect,
                {"", "16", ":", "16:", ":9", "0:9", "16:0", "16:9:1", "16/9", "-16:9", "1:1000"});
}

TEST(ParseBitRate, TakesPlainNumbersAndFactors) {
  EXPECT_EQ(parseBitRate("--audio-bitrate", "128000"), 128'000);
  EXPECT_EQ(parseBitRate("--audio-bitrate", "192k"), 192'000);
  EXPECT_EQ(parseBitRate("--audio-bitrate", "192K"), 192'000);
  EXPECT_EQ(parseBitRate("--video-bitrate", "4M"), 4'000'000);
  EXPECT_EQ(parseBitRate("--video-bitrate", "1.5M"), 1'500'000);
  EXPECT_EQ(parseBitRate("--video-bitrate", "2G"), 2'000'000'000);
}

TEST(ParseBytes, TakesDecimalAndBinaryUnits) {
  EXPECT_EQ(parseBytes("--size-limit", "4000000"), 4'000'000);
  EXPECT_EQ(parseBytes("--size-limit", "25M"), 25'000'000);
  EXPECT_EQ(parseBytes("--size-limit", "25Mi"), 26'214'400);
  EXPECT_EQ(parseBytes("--size-limit", "1.5Gi"), 1'610'612'736);
  EXPECT_EQ(parseBytes("--size-limit", "0.7k"), 700);
  EXPECT_EQ(parseBytes("--size-limit", "2T"), 2'000'000'000'000);
  for (const char* text : {"", "M", "0", "-5M", "5i", "5Mib", "5 M", "1e3", "9999T"})
    EXPECT_THROW(parseBytes("--size-limit", text), Failure) << text;
}

TEST(ParseBitRate, RefusesEverythingElse) {
  expectRefused(parseBitRate,
                {"", "0", "k", "-4M", "4MM", "4m", "4 M", "4Mb", "fast", "3G", "1e6", "0.0001k"});
}

TEST(ParseIndexList, TakesNumbersBetweenCommas) {
  EXPECT_EQ(parseIndexList("0"), IndexSet{0});
  EXPECT_EQ(parseIndexList("2,0,2"), (IndexSet{0, 2}));
}

TEST(ParseIndexList, LeavesOtherTextToOthers) {
  for (const char* text : {"", "all", "eng", "0,", ",0", "0;1", "-1", "0 ,1", "99999999999"})
    EXPECT_FALSE(parseIndexList(text)) << text;
}

/// Files by whose names paths are told from titles.
class ParseTitledPath : public testing::Test {
 protected:
  std::string made(const std::string& name) const {
    std::ofstream(folder_ / name) << "x";
    return (folder_ / name).string();
  }

  TempDir folder_;
};

TEST_F(ParseTitledPath, TakesATitleAndAnAngle) {
  const std::string disc = made("disc");
  EXPECT_EQ(parseTitledPath(disc + "#3"), (TitledPath{.path = disc, .title = 3, .angle = 1}));
  EXPECT_EQ(parseTitledPath(disc + "#3.2"), (TitledPath{.path = disc, .title = 3, .angle = 2}));
  EXPECT_EQ(parseTitledPath(disc + "#main"),
            (TitledPath{.path = disc, .title = kMainTitle, .angle = 1}));
  EXPECT_EQ(parseTitledPath(disc + "#main.4"),
            (TitledPath{.path = disc, .title = kMainTitle, .angle = 4}));
  const std::string marked = made("a#b");
  EXPECT_EQ(parseTitledPath(marked + "#2"), (TitledPath{.path = marked, .title = 2, .angle = 1}));
}

TEST_F(ParseTitledPath, APathWithoutATitleIsAPath) {
  for (const std::string& text : {std::string(), std::string("disc"), made("disc"), made("a#2"),
                                  (folder_ / "missing#2").string()})
    EXPECT_EQ(parseTitledPath(text), (TitledPath{.path = text, .title = {}, .angle = 1}));
}

TEST_F(ParseTitledPath, RefusesWhatIsNoTitle) {
  const std::string disc = made("disc");
  for (const char* title : {"#0", "#", "#-1", "#x", "#3.0", "#3.", "#.2", "#3.x", "#99999999999"})
    EXPECT_THROW(parseTitledPath(disc + title), Failure) << title;
}

}  // namespace
}  // namespace kestrel::test
