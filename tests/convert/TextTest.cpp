#include <kestrel/convert/Text.h>

#include <gtest/gtest.h>

#include <string>

namespace kestrel {

namespace {

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

TEST(NearestNames, KnowShortForms) {
  EXPECT_EQ(nearestNames("--vcodec", {"--video-codec", "--audio-codec", "--crop"}),
            "; did you mean '--video-codec'?");
  EXPECT_EQ(nearestNames("bitrate", {"video-bitrate", "audio-bitrate", "size"}),
            "; did you mean 'video-bitrate' or 'audio-bitrate'?");
  EXPECT_EQ(nearestNames("web", {"phone", "web-1080p", "web-720p"}),
            "; did you mean 'web-720p' or 'web-1080p'?");
  EXPECT_EQ(nearestNames("--vf", {"--video-filter"}), "");
}

TEST(NearestNames, WhatIsLikeNothingHasNone) {
  EXPECT_EQ(nearestNames("webb", {"web-720p", "phone", "archive"}), "; did you mean 'web-720p'?");
  EXPECT_EQ(nearestNames("xyzzyplugh", {"fast", "slow"}), "");
  EXPECT_EQ(nearestNames("fast", {}), "");
}

}  // namespace

}  // namespace kestrel
