#include "support/EverydaySound.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

const AVOutputFormat& written(const std::string& path) {
  return *av_guess_format(nullptr, path.c_str(), nullptr);
}

bool isEveryday(const std::string& path, AVCodecID codec) {
  return !everydaySound(written(path), codec).empty();
}

/// The first sound of a file, asked whether it is whole and begins at once.
struct Asked {
  bool begins = false;
  bool isWhole = false;

  explicit Asked(const std::string& name) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, fixture(name).c_str(), nullptr, nullptr) < 0) return;
    avformat_find_stream_info(input, nullptr);
    const int index = av_find_best_stream(input, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    begins = beginsWithInput(*input->streams[index], *input);
    isWhole = isKnownToBeWhole(*input->streams[index], *input);
    avformat_close_input(&input);
  }
};

TEST(EverydaySound, IsWhatPlayersOfAContainerKnow) {
  for (const char* path : {"a.mp4", "a.mov", "a.m4a", "a.3gp", "a.flv", "a.ts", "a.mkv", "a.aac"})
    EXPECT_TRUE(isEveryday(path, AV_CODEC_ID_AAC)) << path;
  for (const char* path : {"a.ts", "a.mkv", "a.mpg", "a.ac3"})
    EXPECT_TRUE(isEveryday(path, AV_CODEC_ID_AC3)) << path;
  for (const char* path : {"a.mkv", "a.webm", "a.ogg", "a.opus"})
    EXPECT_TRUE(isEveryday(path, AV_CODEC_ID_OPUS)) << path;
  for (const AVCodecID codec : {AV_CODEC_ID_FLAC, AV_CODEC_ID_DTS, AV_CODEC_ID_TRUEHD,
                                AV_CODEC_ID_MP3, AV_CODEC_ID_VORBIS, AV_CODEC_ID_EAC3})
    EXPECT_TRUE(isEveryday("a.mkv", codec)) << avcodec_get_name(codec);
  EXPECT_TRUE(isEveryday("a.wav", AV_CODEC_ID_PCM_S24LE));
  EXPECT_TRUE(isEveryday("a.m4a", AV_CODEC_ID_ALAC));
}

TEST(EverydaySound, IsNotAllThatMuxersTake) {
  // Most browsers and many phones would be silent.
  EXPECT_FALSE(isEveryday("a.mp4", AV_CODEC_ID_AC3));
  EXPECT_FALSE(isEveryday("a.mp4", AV_CODEC_ID_EAC3));
  EXPECT_FALSE(isEveryday("a.mp4", AV_CODEC_ID_FLAC));
  EXPECT_FALSE(isEveryday("a.mp4", AV_CODEC_ID_OPUS));
  EXPECT_FALSE(isEveryday("a.mp4", AV_CODEC_ID_MP3));
  EXPECT_FALSE(isEveryday("a.mov", AV_CODEC_ID_PCM_S16LE));
  EXPECT_FALSE(isEveryday("a.webm", AV_CODEC_ID_AAC));
  EXPECT_FALSE(isEveryday("a.wav", AV_CODEC_ID_MP3));
  EXPECT_FALSE(isEveryday("a.mkv", AV_CODEC_ID_PCM_S16LE));
}

TEST(EverydaySound, SomeContainersKnowOnlyTheOrderOfPackets) {
  for (const char* path : {"a.mp4", "a.mkv", "a.ts", "a.flv", "a.ogg", "a.webm"})
    EXPECT_TRUE(timesSound(written(path))) << path;
  for (const char* path : {"a.mp3", "a.wav", "a.flac", "a.aac", "a.avi", "a.aiff"})
    EXPECT_FALSE(timesSound(written(path))) << path;
}

TEST(EverydaySound, HolesAreKnownWhereAnIndexOrTheOrderTells) {
  EXPECT_TRUE(Asked("audio-only.m4a").isWhole);
  EXPECT_TRUE(Asked("pcm-stereo-44100-s16.wav").isWhole);
  EXPECT_FALSE(Asked("av-tracks.mkv").isWhole);
  EXPECT_TRUE(Asked("av-tracks.mkv").begins);
  EXPECT_FALSE(Asked("av-late-audio.mkv").begins);
  EXPECT_FALSE(Asked("aac-hole.m4a").isWhole);
}

}  // namespace
}  // namespace kestrel::test
