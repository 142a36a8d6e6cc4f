#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

class ConvertPipe : public testing::Test {
 protected:
  /// Converts from standard input to standard output, both pipes, into a file of the folder.
  RunResult pipe(const std::string& input, const std::string& output,
                 const std::string& options) const {
    const std::string script = "cat \"$1\" | \"$0\" convert - - " + options + " | cat > " + output;
    return run({"bash", "-o", "pipefail", "-c", script, kestrelBinary(), fixture(input).string()},
               {.workingDirectory = folder_.path()});
  }

  const TempDir folder_;
};

TEST_F(ConvertPipe, WritesWhatNeverGoesBack) {
  struct Row {
    const char *format, *name, *codec;
    size_t streams;
  };
  for (const Row& row :
       {Row{"mkv", "matroska,webm", "h264", 2}, Row{"ts", "mpegts", "h264", 2},
        Row{"mp4", "mov,mp4,m4a,3gp,3g2,mj2", "h264", 2}, Row{"wav", "wav", "pcm_s16le", 1},
        Row{"mp3", "mp3", "mp3", 1}, Row{"flac", "flac", "flac", 1}}) {
    SCOPED_TRACE(row.format);
    const RunResult result = pipe("av-tracks.mkv", "out", "--format " + std::string(row.format));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(withoutLosses(result.err), "");
    const auto info = ffprobeJson(folder_ / "out");
    EXPECT_EQ(info["format"]["format_name"], row.name);
    EXPECT_EQ(info["streams"][0]["codec_name"], row.codec);
    EXPECT_GE(info["streams"].size(), row.streams);
    EXPECT_EQ(ffmpeg({"-xerror", "-i", (folder_ / "out").string(), "-f", "null", "-"}), "");
  }
}

TEST_F(ConvertPipe, WhatGoesBackOrHasNoNameIsRefused) {
  RunResult result = pipe("av-tracks.mkv", "out", "--format avi");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("avi cannot be written to a pipe"));
  result = pipe("av-tracks.mkv", "out", "");
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("--format names the container"));
  result = pipe("av-tracks.mkv", "out", "--format mkw");
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("--format: there is no container 'mkw'"));
  result = pipe("av-tracks.mkv", "out", "--format mp4 --size-limit 1M");
  EXPECT_EQ(result.status, 2);
}

TEST_F(ConvertPipe, AFileMayHaveAnotherFormatThanItsName) {
  EXPECT_TRUE(convert(fixture("av25.mp4"), folder_ / "movie.bin",
                      {"--format", "mkv", "--video-codec", "copy"})
                  .status == 0);
  EXPECT_EQ(ffprobeJson(folder_ / "movie.bin")["format"]["format_name"], "matroska,webm");
}

// Whether pictures fit into one rate is known only once they have gone through. These come five a
// second for seven seconds, then 25 in one, of which a container of five shows the one in the
// middle of each fifth, and the last.
TEST_F(ConvertPipe, PicturesThatFindNoPlaceAreNamed) {
  const auto uneven = (folder_ / "uneven.mkv").string();
  ffmpeg({"-f", "lavfi", "-i", "testsrc=s=64x48:r=5:d=12", "-vf",
          "settb=1/1000,setpts='if(lt(N,35),N*200,7000+(N-35)*40)'", "-vsync", "vfr",
          "-enc_time_base", "1/1000", "-c:v", "ffv1", uneven});
  const auto avi = [&](const std::string& options) {
    return run({"bash", "-o", "pipefail", "-c",
                "cat \"$1\" | \"$0\" convert - out.avi --force --video-codec ffv1" + options,
                kestrelBinary(), uneven},
               {.workingDirectory = folder_.path()});
  };
  const RunResult result = avi("");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr(": 19 of 60: avi has one rate, 5 a second"));
  // A rate that is asked for is no news.
  EXPECT_EQ(avi(" --fps 5").err, "");
}

// The index of fragments has no place for it.
TEST_F(ConvertPipe, ACoverDoesNotGoDownAPipeOfFragments) {
  const RunResult result = pipe("cover.m4a", "out", "--format mp4");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("cannot hold it"));
  EXPECT_EQ(ffprobeJson(folder_ / "out")["streams"].size(), 1u);
}

/// How often a word is in a file.
int countOf(const std::string& bytes, const std::string& word) {
  int count = 0;
  for (size_t at = bytes.find(word); at != std::string::npos; at = bytes.find(word, at + 1))
    ++count;
  return count;
}

// 2 s in fragments of half a second: four, each from a key picture on.
TEST_F(ConvertPipe, FragmentsBeginAtKeyPictures) {
  EXPECT_TRUE(converts(fixture("av60.mp4"), folder_ / "parts.mp4", {"--fragment", "0.5"}));
  const std::string bytes = readBytes(folder_ / "parts.mp4");
  EXPECT_EQ(countOf(bytes, "moof"), 4);
  EXPECT_LT(bytes.find("moov"), bytes.find("moof"));
  const auto packets =
      ffprobeJson(folder_ / "parts.mp4", {"-select_streams", "v", "-show_entries", "packet=flags"});
  int keys = 0;
  for (const auto& packet : packets["packets"])
    keys += std::string(packet["flags"]).starts_with('K') ? 1 : 0;
  EXPECT_EQ(keys, 4);
  // The pictures' delay in the encoder moves them against the sound nowhere.
  const auto probed = ffprobeJson(folder_ / "parts.mp4");
  EXPECT_EQ(probed["streams"][0]["start_time"], "0.000000");
  // The sound's first packet is what the encoder puts before it, 1024 samples of 48 kHz.
  EXPECT_EQ(probed["streams"][1]["start_time"], "-0.021333");
  EXPECT_TRUE(endsWithSentence(convert(fixture("av25.mp4"), folder_ / "x.mkv", {"--fragment", "2"}),
                               2, "--fragment: matroska has none, only MPEG-4 has"));
}

}  // namespace
}  // namespace kestrel::test
