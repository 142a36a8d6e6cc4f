#include "convert/hls/Playlists.h"

#include <gtest/gtest.h>

#include <vector>

namespace kestrel::test {
namespace {

using Kind = Rendition::Kind;

constexpr int64_t kSecond = 1000000;

Rendition pictures() {
  return {.folder = "640x360",
          .codec = "avc1.64001e",
          .head = "head.mp4",
          .segments = {{"1.m4s", 2002000, 1000}, {"2.m4s", 2002000, 3000}, {"3.m4s", 33367, 900}},
          .width = 640,
          .height = 360,
          .rate = {30000, 1001},
          .range = "SDR"};
}

Rendition sound(const std::string& folder, const std::string& codec, int64_t bytes) {
  return {.kind = Kind::kSound,
          .folder = folder,
          .codec = codec,
          .head = "head.mp4",
          .segments = {{"1.m4s", 2 * kSecond, bytes}, {"2.m4s", 2 * kSecond, bytes}},
          .name = "Sound of " + folder,
          .language = "en",
          .isDefault = folder == "a",
          .channels = 2};
}

TEST(Playlists, OfOneTellEachSegmentsLength) {
  EXPECT_EQ(mediaPlaylist(pictures(), 2),
            "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-INDEPENDENT-SEGMENTS\n"
            "#EXT-X-MAP:URI=\"head.mp4\"\n"
            "#EXTINF:2.002000,\n1.m4s\n#EXTINF:2.002000,\n2.m4s\n#EXTINF:0.033367,\n3.m4s\n"
            "#EXT-X-ENDLIST\n");
}

// RFC 8216, 4.3.3.1: no length is above it once rounded.
TEST(Playlists, TheTargetIsTheLongestRounded) {
  std::vector<Rendition> all{pictures(), sound("a", "mp4a.40.2", 1)};
  EXPECT_EQ(targetDuration(all, Kind::kPictures), 2);
  all[1].segments[1].duration = 2500000;
  EXPECT_EQ(targetDuration(all, Kind::kPictures), 3);
  EXPECT_EQ(targetDuration({}, Kind::kPictures), 1);
}

// RFC 8216, 4.1, by hand: the last segment is too short to count alone, and counts with the one
// before it: 3900 bytes in 2.035367 s. All of them last too long.
TEST(Playlists, ThePeakIsThatOfSegmentsAboutAsLongAsTheTarget) {
  EXPECT_EQ(peakRate(pictures(), 2), 15329);
  EXPECT_EQ(meanRate(pictures()), 9710);
}

TEST(Playlists, OfAllNameTheVariantsAndWhatGoesWithThem) {
  Rendition subtitles{.kind = Kind::kSubtitles,
                      .folder = "t",
                      .segments = {{"s.vtt", 4 * kSecond, 0}},
                      .name = "a \"b\"\n",
                      .isForced = true};
  EXPECT_EQ(
      masterPlaylist({pictures(), sound("a", "mp4a.40.2", 500), sound("b", "ac-3", 250), subtitles},
                     "x.segments"),
      "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-INDEPENDENT-SEGMENTS\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"sound\",NAME=\"Sound of a\",LANGUAGE=\"en\","
      "DEFAULT=YES,AUTOSELECT=YES,CHANNELS=\"2\",URI=\"x.segments/a/playlist.m3u8\"\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"sound\",NAME=\"Sound of b\",LANGUAGE=\"en\","
      "DEFAULT=NO,AUTOSELECT=YES,CHANNELS=\"2\",URI=\"x.segments/b/playlist.m3u8\"\n"
      "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"a 'b' \",DEFAULT=NO,"
      "AUTOSELECT=YES,FORCED=YES,URI=\"x.segments/t/playlist.m3u8\"\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=17329,AVERAGE-BANDWIDTH=11710,"
      "CODECS=\"avc1.64001e,mp4a.40.2,ac-3\",RESOLUTION=640x360,FRAME-RATE=29.970,"
      "VIDEO-RANGE=SDR,AUDIO=\"sound\",SUBTITLES=\"subtitles\"\n"
      "x.segments/640x360/playlist.m3u8\n");
}

TEST(Playlists, OfSoundAloneChooseByTheUsualOne) {
  EXPECT_EQ(masterPlaylist({sound("a", "mp4a.40.2", 500)}, "x"),
            "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-INDEPENDENT-SEGMENTS\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=2000,AVERAGE-BANDWIDTH=2000,CODECS=\"mp4a.40.2\"\n"
            "x/a/playlist.m3u8\n");
  const std::string two =
      masterPlaylist({sound("b", "mp4a.40.2", 250), sound("a", "mp4a.40.2", 500)}, "x");
  EXPECT_NE(two.find("CODECS=\"mp4a.40.2\",AUDIO=\"sound\"\nx/a/playlist.m3u8\n"),
            std::string::npos);
}

// Pictures that are copied may lean on those before their segment.
TEST(Playlists, PromiseIndependenceOnlyWhereThereIsSome) {
  Rendition leaning = pictures();
  leaning.isIndependent = false;
  EXPECT_EQ(mediaPlaylist(leaning, 2).find("INDEPENDENT"), std::string::npos);
  EXPECT_EQ(masterPlaylist({leaning, sound("a", "mp4a.40.2", 1)}, "x").find("INDEPENDENT"),
            std::string::npos);
}

}  // namespace
}  // namespace kestrel::test
