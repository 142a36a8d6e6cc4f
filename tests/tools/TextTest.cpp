#include "tools/Text.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "tools/Failure.h"

namespace {

using kestrel::IndexSet;
using kestrel::Rational;

/// The text values that a parser must refuse, each by a failure of usage that names option and
/// value.
template <class Parser>
void expectRefused(Parser parse, std::initializer_list<std::string> values) {
  for (const std::string& value : values) {
    try {
      parse("--option", value);
      ADD_FAILURE() << "'" << value << "' was accepted";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, kWrongUsage);
      EXPECT_TRUE(failure.message.starts_with("--option: '" + value + "' is not a "))
          << failure.message;
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

TEST(ParseTime, RefusesEverythingElse) {
  expectRefused(parseTime, {"",        " ",
                            "1 ",      " 1",
                            "-1",      "+1",
                            "1s",      "abc",
                            "1.2.3",   "1.",
                            ":30",     "1:",
                            "1:60",    "1:60:00",
                            "1:2:3:4", "1,5",
                            "1e3",     "nan",
                            "inf",     "0x10",
                            ".",       "99999999999999999999",
                            "1:-5",    "0.-5"});
}

TEST(ParseSize, TakesBothSidesOrOne) {
  EXPECT_EQ(parseSize("--size", "1280x720"), (PictureSize{1280, 720}));
  EXPECT_EQ(parseSize("--size", "1280x-"), (PictureSize{1280, {}}));
  EXPECT_EQ(parseSize("--size", "-x720"), (PictureSize{{}, 720}));
}

TEST(ParseSize, RefusesEverythingElse) {
  expectRefused(parseSize, {"", "1280", "x", "-x-", "1280x", "x720", "0x0", "0x720", "-5x720",
                            "1280X720", "1280x720x3", "1280 x 720", "1280.5x720", "70000x70000"});
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

TEST(FormatTime, ShowsWhatThereIs) {
  EXPECT_EQ(formatTime(0), "0:00");
  EXPECT_EQ(formatTime(9.64), "0:09.640");
  EXPECT_EQ(formatTime(75), "1:15");
  EXPECT_EQ(formatTime(3723.25), "1:02:03.250");
  EXPECT_EQ(formatTime(360000), "100:00:00");
  EXPECT_EQ(formatTime(-1.5), "-0:01.500");
}

TEST(FormatTime, RoundsUpIntoTheNextMinute) {
  EXPECT_EQ(formatTime(59.9996), "1:00");
  EXPECT_EQ(formatTime(-0.0001), "0:00");
}

TEST(FormatBitRate, HasThreeDigits) {
  EXPECT_EQ(formatBitRate(0), "0 b/s");
  EXPECT_EQ(formatBitRate(950), "950 b/s");
  EXPECT_EQ(formatBitRate(128'000), "128 kb/s");
  EXPECT_EQ(formatBitRate(30'183), "30.2 kb/s");
  EXPECT_EQ(formatBitRate(4'620'339), "4.62 Mb/s");
  EXPECT_EQ(formatBitRate(999'700), "1 Mb/s");
}

TEST(FormatByteCount, HasThreeDigits) {
  EXPECT_EQ(formatByteCount(44), "44 B");
  EXPECT_EQ(formatByteCount(1'783'875), "1.78 MB");
  EXPECT_EQ(formatByteCount(12'345'678'901), "12.3 GB");
}

TEST(FormatNumber, DropsZerosAtTheEnd) {
  EXPECT_EQ(formatNumber(25, 3), "25");
  EXPECT_EQ(formatNumber(29.97002997, 3), "29.97");
  EXPECT_EQ(formatNumber(100, 0), "100");
}

TEST(Printable, KeepsTextInAnyScript) {
  EXPECT_EQ(printable("Größe 東京 \U0001F426"), "Größe 東京 \U0001F426");
}

TEST(Printable, ReplacesWhatIsNoText) {
  EXPECT_EQ(printable("caf\xE9!"), "caf\uFFFD!");
  EXPECT_FALSE(isUtf8("caf\xE9!"));
  EXPECT_TRUE(isUtf8("Größe 東京"));
  EXPECT_EQ(printable("\xC0\x80"), "\uFFFD\uFFFD");                 // a NUL, longer than needed
  EXPECT_EQ(printable("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");       // half of a pair
  EXPECT_EQ(printable("\xF4\x90\x80\x80").substr(0, 3), "\uFFFD");  // beyond the last character
  EXPECT_EQ(printable("\xE6\x9D"), "\uFFFD\uFFFD");                 // cut short
}

TEST(Printable, LeavesNothingThatCommandsATerminal) {
  EXPECT_EQ(printable("a\033[31mb\x7F"), "a [31mb ");
  EXPECT_EQ(printable("a\u009Bb"), "a b");
}

TEST(Printable, UnifiesLineEnds) { EXPECT_EQ(printable("a\r\nb\rc\n\nd"), "a\nb\nc\n\nd"); }

TEST(NearestNames, NamesWhatATypoMayHaveMeant) {
  EXPECT_EQ(nearestNames("vrefast", {"ultrafast", "veryfast", "slow"}),
            "; did you mean 'veryfast'?");
}

TEST(NearestNames, TheNearestComesFirst) {
  EXPECT_EQ(nearestNames("slowe", {"slow", "slower", "veryslow"}),
            "; did you mean 'slow' or 'slower'?");
}

TEST(NearestNames, CaseDoesNotCount) {
  EXPECT_EQ(nearestNames("BLUR", {"Blur", "Bloom"}), "; did you mean 'Blur'?");
}

TEST(NearestNames, WhatIsLikeNothingHasNone) {
  EXPECT_EQ(nearestNames("xyzzyplugh", {"fast", "slow"}), "");
  EXPECT_EQ(nearestNames("fast", {}), "");
}

TEST(NounAndNumbers, DrawsNeighboursTogether) {
  EXPECT_EQ(nounAndNumbers("title", {4}), "title 4");
  EXPECT_EQ(nounAndNumbers("title", {4, 5}), "titles 4, 5");
  EXPECT_EQ(nounAndNumbers("title", {1, 2, 3, 7, 9, 10}), "titles 1 to 3, 7, 9, 10");
  EXPECT_EQ(nounAndNumbers("title set", {3, 4, 5, 6}), "title sets 3 to 6");
}

}  // namespace
