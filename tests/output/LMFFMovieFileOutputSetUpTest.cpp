#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {
namespace {

using test::smallFormat;
using test::streamOf;
using test::TempDir;
using testing::HasSubstr;

std::string containerFor(const std::string& path) {
  LMFFMovieFileOutput output;
  output.setPath(path);
  output.createMovieOutput();
  return output.formatContext() ? output.formatContext()->oformat->name : "none";
}

TEST(LMFFMovieFileOutputSetUp, StartsWithDefaultsAndWithoutAFile) {
  const LMFFMovieFileOutput output;
  EXPECT_EQ(output.movieFormat(), lm_get_default_movie_file_ouput_format());
  EXPECT_EQ(output.audioInputFormat(), lm_get_default_audio_format());
  EXPECT_NE(output.resample(), nullptr);
  EXPECT_NE(output.videoConverter(), nullptr);
  EXPECT_EQ(output.path(), "");
  EXPECT_FALSE(output.isMovieOpen());
  EXPECT_FALSE(output.isAudioOpen());
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.formatContext(), nullptr);
  EXPECT_EQ(output.audio_pts(), 0);
  EXPECT_EQ(output.video_pts(), 0);
  EXPECT_FALSE(output.lastError());
}

TEST(LMFFMovieFileOutputSetUp, FormatsBeforeAnyStreamAreAllZero) {
  const LMFFMovieFileOutput output;
  EXPECT_EQ(output.outputVideoFormat(), LMFFVideoFormat{});
  EXPECT_EQ(output.outputAudioFormat(), LMFFAudioFormat{});
  EXPECT_EQ(output.audio_output_time(), 0);
  EXPECT_EQ(output.video_output_time(), 0);
}

// The library's own choice for ".m4a".
TEST(LMFFMovieFileOutputSetUp, RingtoneExtensionIsTakenAsM4aInAnyLetterCase) {
  const std::string expected = av_guess_format(nullptr, ".m4a", nullptr)->name;
  EXPECT_EQ(containerFor("/tmp/tone.m4r"), expected);
  EXPECT_EQ(containerFor("/tmp/tone.M4R"), expected);
  EXPECT_EQ(containerFor("/tmp/tone.M4r"), expected);
}

TEST(LMFFMovieFileOutputSetUp, OtherExtensionsAreLeftToTheLibrary) {
  for (const char* path : {"/tmp/a.m4a", "/tmp/a.mp4", "/tmp/a.MKV", "/tmp/a.avi", "/tmp/a.wmv",
                           "/tmp/m4r.mov", "/tmp/a.m4r.ts"}) {
    EXPECT_EQ(containerFor(path), av_guess_format(nullptr, path, nullptr)->name) << path;
  }
}

TEST(LMFFMovieFileOutputSetUp, UnknownExtensionGivesNoContainer) {
  for (const char* path : {"/tmp/a.unheardof", "/tmp/a", "", "/tmp/m4r"}) {
    LMFFMovieFileOutput output;
    output.setPath(path);
    output.openVideo();
    output.openAudio();
    EXPECT_FALSE(output.isMovieOpen()) << path;
    EXPECT_FALSE(output.isVideoOpen()) << path;
    EXPECT_FALSE(output.startOutput()) << path;
    EXPECT_THAT(output.lastError().message, HasSubstr("container format")) << path;
  }
}

TEST(LMFFMovieFileOutputSetUp, FormatNameWinsOverTheExtension) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/movie.mp4.part");
  output.setFormatName("matroska");
  output.createMovieOutput();
  ASSERT_TRUE(output.isMovieOpen());
  EXPECT_STREQ(output.formatContext()->oformat->name, "matroska");
}

TEST(LMFFMovieFileOutputSetUp, UnknownFormatNameGivesNoContainer) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/movie.mp4");
  output.setFormatName("unheardof");
  output.createMovieOutput();
  EXPECT_FALSE(output.isMovieOpen());
  EXPECT_EQ(output.lastError().message, "unknown container format 'unheardof'");
}

TEST(LMFFMovieFileOutputSetUp, ContainerIsMadeOnceAndMayDelayMuxingBy700Milliseconds) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mpg");
  output.createMovieOutput();
  AVFormatContext* context = output.formatContext();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->max_delay, 700000);
  output.setPath("/tmp/b.mkv");
  output.createMovieOutput();
  EXPECT_EQ(output.formatContext(), context);
}

TEST(LMFFMovieFileOutputSetUp, CodecZeroIsTheContainersDefault) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.avi");
  output.setMovieFormat(smallFormat());
  output.openVideo();
  output.openAudio();
  ASSERT_TRUE(output.isVideoOpen());
  ASSERT_TRUE(output.isAudioOpen());
  const AVOutputFormat* avi = av_guess_format("avi", nullptr, nullptr);
  EXPECT_EQ(output.videoStream()->codecpar->codec_id, avi->video_codec);
  EXPECT_EQ(output.audioStream()->codecpar->codec_id, avi->audio_codec);
}

TEST(LMFFMovieFileOutputSetUp, EncodersHaveTheParametersOfTheRecord) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_AC3);
  format.framerate = 30000;
  format.frameTime = 1001;
  format.channel_layout = lm_get_channel_layout_by_name("5.1");
  format.sample_rate = 48000;
  format.audio_bitrate = 384000;
  output.setMovieFormat(format);
  output.openVideo();
  output.openAudio();
  const AVCodecContext* video = output.codecContext(output.videoStream());
  const AVCodecContext* audio = output.codecContext(output.audioStream());
  ASSERT_NE(video, nullptr);
  ASSERT_NE(audio, nullptr);
  EXPECT_EQ(output.outputVideoFormat(), (LMFFVideoFormat{AV_PIX_FMT_YUV420P, 160, 120}));
  EXPECT_EQ(video->bit_rate, 400000);
  EXPECT_EQ(video->gop_size, 12);
  EXPECT_EQ(fromAV(video->time_base), (Rational{1001, 30000}));
  EXPECT_EQ(fromAV(output.videoStream()->avg_frame_rate), (Rational{30000, 1001}));
  EXPECT_EQ(output.movieFrameDuration(), (Rational{1001, 30000}));
  EXPECT_EQ(output.outputAudioFormat(),
            (LMFFAudioFormat{AV_SAMPLE_FMT_FLTP, format.channel_layout, 48000}));
  EXPECT_EQ(audio->bit_rate, 384000);
  EXPECT_EQ(fromAV(audio->time_base), (Rational{1, 48000}));
}

TEST(LMFFMovieFileOutputSetUp, StreamsAreNumberedFromOne) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_MP2));
  output.openVideo();
  output.openAudio();
  EXPECT_EQ(output.videoStream()->id, 1);
  EXPECT_EQ(output.audioStream()->id, 2);
}

TEST(LMFFMovieFileOutputSetUp, HeadersAreGlobalWhereTheContainerWantsThat) {
  for (const auto& [path, isGlobal] : {std::pair{"/tmp/a.mp4", true}, {"/tmp/a.avi", false}}) {
    LMFFMovieFileOutput output;
    output.setPath(path);
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
    output.openVideo();
    const AVCodecContext* encoder = output.codecContext(output.videoStream());
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ((encoder->flags & AV_CODEC_FLAG_GLOBAL_HEADER) != 0, isGlobal) << path;
  }
}

TEST(LMFFMovieFileOutputSetUp, MacroblockDecisionIsByRateDistortionForOlderCodecsOnly) {
  for (const auto& [codec, decision] : {std::pair{AV_CODEC_ID_MPEG1VIDEO, FF_MB_DECISION_RD},
                                        {AV_CODEC_ID_MPEG2VIDEO, FF_MB_DECISION_RD},
                                        {AV_CODEC_ID_MSMPEG4V3, FF_MB_DECISION_RD},
                                        {AV_CODEC_ID_MPEG4, FF_MB_DECISION_SIMPLE}}) {
    LMFFMovieFileOutput output;
    output.setPath("/tmp/a.avi");
    output.setMovieFormat(smallFormat(codec));
    output.openVideo();
    ASSERT_TRUE(output.isVideoOpen());
    EXPECT_EQ(output.codecContext(output.videoStream())->mb_decision, decision)
        << avcodec_get_name(codec);
  }
}

TEST(LMFFMovieFileOutputSetUp, H264IsOfTheMainProfileByTheFastPreset) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_H264));
  test::start(output, dir / "a.mp4", true, false);
  AVCodecContext* encoder = output.codecContext(output.videoStream());
  uint8_t* preset = nullptr;
  ASSERT_EQ(av_opt_get(encoder->priv_data, "preset", 0, &preset), 0);
  EXPECT_STREQ(reinterpret_cast<char*>(preset), "fast");
  av_free(preset);
  test::writePictures(output, 3);
  output.stopOutput();
  EXPECT_EQ(streamOf(dir / "a.mp4", "v")["profile"], "Main");
}

TEST(LMFFMovieFileOutputSetUp, NoAspectLeavesThePixelAspectOpen) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.openVideo();
  ASSERT_TRUE(output.isVideoOpen());
  EXPECT_EQ(output.videoStream()->sample_aspect_ratio.num, 0);
  EXPECT_EQ(output.codecContext(output.videoStream())->sample_aspect_ratio.num, 0);
}

// 16 / 9 × 576 / 720 = 64 / 45.
TEST(LMFFMovieFileOutputSetUp, AspectBecomesThatOfAPixel) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_MPEG4);
  format.width = 720;
  format.height = 576;
  format.aspect = 1.7777778F;
  output.setMovieFormat(format);
  test::start(output, dir / "a.mp4", true, false);
  EXPECT_EQ(fromAV(output.videoStream()->sample_aspect_ratio), (Rational{64, 45}));
  EXPECT_EQ(fromAV(output.codecContext(output.videoStream())->sample_aspect_ratio),
            (Rational{64, 45}));
  test::writePictures(output, 2);
  output.stopOutput();
  const nlohmann::json stream = streamOf(dir / "a.mp4", "v");
  EXPECT_EQ(stream["sample_aspect_ratio"], "64:45");
  EXPECT_EQ(stream["display_aspect_ratio"], "16:9");
}

TEST(LMFFMovieFileOutputSetUp, RateTooFineForMpeg4IsApproximated) {
  for (const auto& [framerate, frameTime] :
       {std::pair{500000, 33369}, std::pair{1000000, 66733}, std::pair{10000000, 333667}}) {
    const TempDir dir;
    LMFFMovieFileOutput output;
    LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_MPEG4);
    format.framerate = framerate;
    format.frameTime = frameTime;
    output.setMovieFormat(format);
    test::start(output, dir / "a.avi", true, false);
    const AVRational base = output.codecContext(output.videoStream())->time_base;
    EXPECT_LE(base.den, 65535);
    const double duration = static_cast<double>(frameTime) / framerate;
    EXPECT_NEAR(av_q2d(base) / duration, 1, 1e-8);
    test::writePictures(output, 30);
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << output.lastError().message;
    EXPECT_EQ(test::packetsOf(dir / "a.avi", "v").size(), 30u);
    EXPECT_NEAR(test::lengthOf(dir / "a.avi"), 30 * duration, 1e-3);
  }
}

TEST(LMFFMovieFileOutputSetUp, RateWithoutNeighbourInMpeg4IsTheFinestThere) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_MPEG4);
  format.framerate = 1000000;
  output.setMovieFormat(format);
  output.openVideo();
  ASSERT_TRUE(output.isVideoOpen());
  EXPECT_EQ(fromAV(output.codecContext(output.videoStream())->time_base), (Rational{1, 65535}));
}

TEST(LMFFMovieFileOutputSetUpDeathTest, OutputAloneKeepsTheLibrariesQuiet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process in which nothing has been made yet
  const auto levelOfOutput = [] {
    av_log_set_level(AV_LOG_INFO);
    const LMFFMovieFileOutput output;
    return av_log_get_level();
  };
  EXPECT_EXIT(std::exit(levelOfOutput()), testing::ExitedWithCode(AV_LOG_FATAL), "");
}

TEST(LMFFMovieFileOutputSetUp, DvdHasAGroupOfHalfASecondAtAConstantRate) {
  for (const auto& [framerate, frameTime, group] :
       {std::tuple{25, 1, 15}, std::tuple{30000, 1001, 18}}) {
    LMFFMovieFileOutput output;
    output.setPath("/tmp/a.dvd");
    LMFFMovieFileOutputFormat format = smallFormat();
    format.framerate = framerate;
    format.frameTime = frameTime;
    format.video_bitrate = 6000000;
    output.setMovieFormat(format);
    output.openVideo();
    ASSERT_TRUE(output.isVideoOpen());
    const AVCodecContext* encoder = output.codecContext(output.videoStream());
    EXPECT_EQ(encoder->codec_id, AV_CODEC_ID_MPEG2VIDEO);
    EXPECT_EQ(encoder->pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(encoder->gop_size, group);
    EXPECT_EQ(encoder->rc_max_rate, 6000000);
    EXPECT_EQ(encoder->rc_min_rate, 6000000);
    EXPECT_EQ(encoder->rc_buffer_size, 1835008);
    EXPECT_EQ(output.formatContext()->packet_size, 2048u);
  }
}

TEST(LMFFMovieFileOutputSetUp, OpeningVideoTwiceAddsAStreamAndForgetsTheFirst) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.openVideo();
  const AVStream* first = output.videoStream();
  output.openVideo();
  EXPECT_NE(output.videoStream(), first);
  EXPECT_EQ(output.formatContext()->nb_streams, 2u);
}

TEST(LMFFMovieFileOutputSetUp, BlockConfiguresTheEncoderBeforeItOpens) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.createMovieOutput();
  AVStream* seen = nullptr;
  AVStream* stream =
      output.openOutputStream(AV_CODEC_ID_FLAC, [&](AVStream* added, AVCodecContext* encoder) {
        seen = added;
        EXPECT_FALSE(avcodec_is_open(encoder));
        EXPECT_EQ(encoder->codec->id, AV_CODEC_ID_FLAC);
        encoder->sample_fmt = AV_SAMPLE_FMT_S16;
        encoder->sample_rate = 32000;
        av_channel_layout_default(&encoder->ch_layout, 2);
      });
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(seen, stream);
  EXPECT_TRUE(avcodec_is_open(output.codecContext(stream)));
  EXPECT_EQ(stream->codecpar->sample_rate, 32000);
  EXPECT_FALSE(output.isAudioOpen());
}

TEST(LMFFMovieFileOutputSetUp, CodecWithoutEncoderGivesNoStream) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_RV40));
  output.openVideo();
  EXPECT_TRUE(output.isMovieOpen());
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.formatContext()->nb_streams, 0u);
  EXPECT_EQ(output.lastError().message, "no encoder for 'rv40'");
}

TEST(LMFFMovieFileOutputSetUp, ContainerWithoutPicturesHasNoDefaultCodecForThem) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.wav");
  output.setMovieFormat(smallFormat());
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.lastError().message,
            "the container format 'wav' has no default codec for this stream");
}

// The encoder's own words, not "Invalid argument".
TEST(LMFFMovieFileOutputSetUp, RefusalOfAnEncoderIsExplained) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mpg");
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_MPEG2VIDEO);
  format.framerate = 7;
  output.setMovieFormat(format);
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.formatContext()->nb_streams, 1u);
  EXPECT_LT(output.lastError().code, 0);
  EXPECT_THAT(output.lastError().message, HasSubstr("mpeg2video: "));
  EXPECT_THAT(output.lastError().message, HasSubstr("7/1 fps"));
}

TEST(LMFFMovieFileOutputSetUp, OddHeightIsExplainedByTheEncoder) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mp4");
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_H264);
  format.height = 121;
  output.setMovieFormat(format);
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.lastError().message, "libx264: height not divisible by 2 (160x121)");
}

TEST(LMFFMovieFileOutputSetUp, EmptyRecordIsRefusedWithoutACrash) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mp4");
  output.setMovieFormat({});
  output.openVideo();
  output.openAudio();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_FALSE(output.isAudioOpen());
  EXPECT_TRUE(output.lastError());
}

TEST(LMFFMovieFileOutputSetUp, FirstErrorIsKept) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_RV40, AV_CODEC_ID_SIPR));
  output.openVideo();
  output.openAudio();
  EXPECT_EQ(output.lastError().message, "no encoder for 'rv40'");
}

TEST(LMFFMovieFileOutputSetUp, EncoderOptionsAreAppliedLast) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_AAC));
  output.setVideoOptions({{"g", "50"}, {"bf", "2"}});
  output.setAudioOptions({{"b", "96000"}, {"aac_coder", "fast"}});
  output.openVideo();
  output.openAudio();
  ASSERT_TRUE(output.isVideoOpen());
  ASSERT_TRUE(output.isAudioOpen());
  EXPECT_EQ(output.codecContext(output.videoStream())->gop_size, 50);
  EXPECT_EQ(output.codecContext(output.videoStream())->max_b_frames, 2);
  EXPECT_EQ(output.codecContext(output.audioStream())->bit_rate, 96000);
}

TEST(LMFFMovieFileOutputSetUp, UnknownVideoOptionIsNamed) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setVideoOptions({{"bf", "0"}, {"wings", "2"}});
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_EQ(output.lastError().message, "unknown option 'wings'");
}

TEST(LMFFMovieFileOutputSetUp, UnknownAudioOptionIsNamed) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(0, AV_CODEC_ID_AAC));
  output.setAudioOptions({{"wings", "2"}});
  output.openAudio();
  EXPECT_FALSE(output.isAudioOpen());
  EXPECT_EQ(output.lastError().message, "unknown option 'wings'");
}

TEST(LMFFMovieFileOutputSetUp, OptionWithAValueThatIsNoneFails) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setVideoOptions({{"g", "plenty"}});
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_THAT(output.lastError().message, HasSubstr("plenty"));
}

TEST(LMFFMovieFileOutputSetUp, UnknownMuxerOptionIsNamed) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mp4").string());
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setMuxerOptions({{"movflags", "+faststart"}, {"wings", "2"}});
  output.openVideo();
  EXPECT_FALSE(output.startOutput());
  EXPECT_EQ(output.lastError().message, "unknown option 'wings'");
}

}  // namespace
}  // namespace kestrel
