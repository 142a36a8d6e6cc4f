#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

class ConvertOptions : public testing::Test {
 protected:
  /// What ffprobe says of the video stream that options lead to.
  nlohmann::json videoOf(const std::string& source, const Arguments& options) {
    EXPECT_TRUE(converts(fixture(source), output_,
                         joined(options, {"--force", "--encoder-preset", "ultrafast"})));
    return streamOf(output_, "video");
  }

  nlohmann::json audioOf(const std::string& source, const Arguments& options) {
    EXPECT_TRUE(converts(fixture(source), output_, joined(options, {"--force"})));
    return streamOf(output_, "audio");
  }

  TempDir folder_;
  std::filesystem::path output_ = folder_ / "out.mp4";
};

double displayAspect(const nlohmann::json& video) {
  const Fraction sample = fraction(video.value("sample_aspect_ratio", "1:1"));
  return video["width"].get<double>() / video["height"].get<double>() *
         static_cast<double>(sample.num) / static_cast<double>(sample.den);
}

TEST_F(ConvertOptions, SizeOfBothSides) {
  const auto video = videoOf("av25.mp4", {"--size", "160x120"});
  EXPECT_EQ(video["width"], 160);
  EXPECT_EQ(video["height"], 120);
  // The picture is the same, so its pixels are not square any more.
  EXPECT_NEAR(displayAspect(video), 16 / 9.0, 0.01);
}

TEST_F(ConvertOptions, SizeOfOneSideKeepsTheShape) {
  const auto wide = videoOf("av25.mp4", {"--size", "160x-"});
  EXPECT_EQ(wide["width"], 160);
  EXPECT_EQ(wide["height"], 90);
  const auto high = videoOf("av25.mp4", {"--size", "-x90"});
  EXPECT_EQ(high["width"], 160);
  EXPECT_EQ(high["height"], 90);
  EXPECT_NEAR(displayAspect(high), 16 / 9.0, 0.01);
}

TEST_F(ConvertOptions, SizeOfOneSideMakesSquarePixelsOfOthers) {
  const auto source = folder_ / "dvd.mkv";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=720x576:rate=25:duration=0.2,setsar=64/45", "-c:v",
          "mpeg4", source.string()});
  ASSERT_TRUE(converts(source, output_, {"--size", "-x288"}));
  const auto video = streamOf(output_, "video");
  EXPECT_EQ(video["width"], 512);
  EXPECT_EQ(video["height"], 288);
  EXPECT_NEAR(displayAspect(video), 16 / 9.0, 0.01);
}

TEST_F(ConvertOptions, ADisplayAspectOtherThanThePixelsSurvives) {
  const auto source = folder_ / "dvd.mkv";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=720x576:rate=25:duration=0.2,setsar=64/45", "-c:v",
          "mpeg4", source.string()});
  for (const char* name : {"out.mp4", "out.mkv", "out.mov"}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(converts(source, folder_ / name, {"--video-codec", "h264"}));
    const auto video = streamOf(folder_ / name, "video");
    EXPECT_EQ(video["width"], 720);
    EXPECT_EQ(video["height"], 576);
    EXPECT_NEAR(displayAspect(video), 16 / 9.0, 0.01);
  }
}

TEST_F(ConvertOptions, Aspect) {
  const auto video = videoOf("av25.mp4", {"--aspect", "4:3"});
  EXPECT_EQ(video["width"], 320);
  EXPECT_EQ(video["height"], 180);
  EXPECT_NEAR(displayAspect(video), 4 / 3.0, 0.01);
}

// What one pass makes of a bit rate in four seconds of noise is the encoder's affair: ffmpeg, with
// the same one, gets as much.
TEST_F(ConvertOptions, VideoBitrateIsThatOfTheEncoder) {
  const auto source = folder_ / "noise.mkv";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25:duration=4,noise=alls=50:allf=t",
          "-c:v", "libx264", "-preset", "ultrafast", source.string()});
  const auto peer = folder_ / "peer.mp4";
  const auto rateOf = [](const std::filesystem::path& file) {
    return std::stod(streamOf(file, "video")["bit_rate"].get<std::string>());
  };
  for (const char* rate : {"400k", "1M"}) {
    ASSERT_TRUE(converts(source, output_,
                         {"--video-bitrate", rate, "--encoder-preset", "veryfast", "--force"}));
    ffmpeg({"-i", source.string(), "-c:v", "libx264", "-preset", "veryfast", "-b:v", rate,
            "-pix_fmt", "yuv420p", peer.string()});
    EXPECT_NEAR(rateOf(output_) / rateOf(peer), 1, 0.02) << rate;
  }
}

TEST_F(ConvertOptions, AudioBitrateIsRoughlyKept) {
  const auto source = folder_ / "noise.wav";
  ffmpeg({"-f", "lavfi", "-i", "anoisesrc=r=44100:d=5", "-ac", "2", source.string()});
  for (const auto& [text, bits] : {std::pair{"64k", 64e3}, {"192k", 192e3}}) {
    ASSERT_TRUE(converts(source, output_, {"--audio-bitrate", text, "--force"}));
    const auto rate = std::stod(streamOf(output_, "audio")["bit_rate"].get<std::string>());
    EXPECT_NEAR(rate / bits, 1, 0.15) << text;
  }
}

TEST_F(ConvertOptions, CrfIsQualityInPlaceOfABitRate) {
  const auto quality = [&](const char* crf) {
    videoOf("av25.mp4", {"--crf", crf});
    return psnr(pictureBytes(output_, "format=gray"),
                pictureBytes(fixture("av25.mp4"), "format=gray"));
  };
  const double fine = quality("10");
  const double usual = quality("25");
  const double coarse = quality("45");
  EXPECT_GT(fine, 38);
  EXPECT_GT(fine, usual + 3);
  EXPECT_GT(usual, coarse + 3);
}

TEST_F(ConvertOptions, EncoderPresetReachesTheEncoder) {
  // x264 writes its settings into the stream: ultrafast works without CABAC, slow with it.
  const auto settingsOf = [&](const char* preset) {
    EXPECT_TRUE(converts(fixture("av25.mp4"), output_, {"--encoder-preset", preset, "--force"}));
    return ffmpeg({"-i", output_.string(), "-map", "0:v", "-c", "copy", "-bsf:v",
                   "h264_mp4toannexb", "-f", "h264", "-"});
  };
  EXPECT_THAT(settingsOf("ultrafast"), HasSubstr("subme=0"));
  EXPECT_THAT(settingsOf("veryfast"), HasSubstr("subme=2"));
}

TEST_F(ConvertOptions, VideoOptionsReachTheEncoder) {
  const auto video = videoOf("av25.mp4", {"--video-option", "profile=high", "--video-option",
                                          "bf=0", "--video-option", "g=10"});
  EXPECT_EQ(video["has_b_frames"], 0);
  const auto packets =
      ffprobeJson(output_, {"-select_streams", "v", "-show_entries", "packet=flags"})["packets"];
  ASSERT_THAT(packets, SizeIs(50));
  for (size_t i = 0; i < packets.size(); i += 10)
    EXPECT_THAT(packets[i]["flags"].get<std::string>(), testing::StartsWith("K")) << i;
}

TEST_F(ConvertOptions, AudioOptionsReachTheEncoder) {
  const auto audio = audioOf("audio-only.m4a", {"--audio-codec", "aac", "--audio-option",
                                                "profile=aac_ltp", "--audio-option", "strict=-2"});
  EXPECT_EQ(audio["profile"], "LTP");
}

TEST_F(ConvertOptions, FilesMayFollowAnEncodersOption) {
  const RunResult result =
      run({kestrelBinary(), "convert", "--video-option", "bf=0", "--audio-option", "cutoff=8000",
           fixture("av25.mp4").string(), output_.string(), "--force"});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(ConvertOptions, UnknownEncoderOptionsFailByName) {
  for (const char* kind : {"--video-option", "--audio-option"}) {
    const auto result = convert(fixture("av25.mp4"), output_, {kind, "no_such_key=1"});
    EXPECT_TRUE(endsWithSentence(result, 2, std::string(kind) + ": the encoder "));
    EXPECT_TRUE(endsWithSentence(result, 2, "has no option 'no_such_key'"));
    EXPECT_FALSE(std::filesystem::exists(output_));
  }
}

TEST_F(ConvertOptions, ValuesThatEncodersDoNotTakeAreWrongUsage) {
  const auto refused = [&](const Arguments& options, const std::string& sentence) {
    const auto result = convert(fixture("av25.mp4"), output_, options);
    EXPECT_TRUE(endsWithSentence(result, 2, sentence));
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    EXPECT_FALSE(std::filesystem::exists(output_));
  };
  refused({"--video-option", "qp=many"}, "'many' is no qp of the encoder libx264");
  refused({"--video-option", "tune=foo"}, "--video-option: the encoder libx264 has no tune 'foo'");
  refused({"--sample-rate", "1234"}, "--sample-rate: aac has no 1234 Hz in mp4, but 7350, 8000");
  refused({"--audio-codec", "opus", "--sample-rate", "44100"},
          "--sample-rate: libopus has no 44100 Hz in mp4, but 8000, 12000");
  refused({"--audio-codec", "mp3", "--channels", "5.1"},
          "--channels: libmp3lame has no 5.1 in mp4, but mono, stereo");
}

TEST_F(ConvertOptions, AnUnknownPresetFailsWithTheNearestOne) {
  for (const char* codec : {"h264", "hevc"}) {
    const auto preset = convert(fixture("av25.mp4"), output_,
                                {"--video-codec", codec, "--encoder-preset", "verifast"});
    EXPECT_TRUE(endsWithSentence(preset, 2, "--encoder-preset: 'verifast' is none of"));
    EXPECT_TRUE(endsWithSentence(preset, 2, "did you mean 'veryfast'?"));
    EXPECT_FALSE(std::filesystem::exists(output_));
  }
}

TEST_F(ConvertOptions, HevcInMp4HasTheTagThatPlayersTake) {
  const auto video = videoOf("av25.mp4", {"--video-codec", "hevc"});
  EXPECT_EQ(video["codec_tag_string"], "hvc1");
  const auto copied = folder_ / "copied.mp4";
  ASSERT_TRUE(converts(output_, copied, {"--video-codec", "copy", "--audio-codec", "copy"}));
  EXPECT_EQ(streamOf(copied, "video")["codec_tag_string"], "hvc1");
  const auto pictures = [](const std::filesystem::path& file) {
    return ffmpeg({"-i", file.string(), "-map", "0:v:0", "-f", "md5", "-"});
  };
  EXPECT_EQ(pictures(copied), pictures(output_));
}

TEST_F(ConvertOptions, SampleRate) {
  for (const char* rate : {"22050", "48000", "96000"}) {
    const auto audio = audioOf("av25.mp4", {"--sample-rate", rate});
    EXPECT_EQ(audio["sample_rate"], rate);
    // Within a frame of the encoder, and the few samples that a change of rate holds back.
    const double length = static_cast<double>(sampleCount(fixture("av25.mp4"))) / 44100;
    EXPECT_NEAR(static_cast<double>(sampleCount(output_)), length * std::stod(rate), 1024 + 100);
  }
}

TEST_F(ConvertOptions, Channels) {
  for (const auto& [layout, count] : {std::pair{"mono", 1}, {"stereo", 2}, {"5.1", 6}}) {
    const auto audio = audioOf("av25.mp4", {"--channels", layout});
    EXPECT_EQ(audio["channels"], count);
    EXPECT_EQ(audio["channel_layout"], layout);
  }
}

TEST_F(ConvertOptions, NoneLeavesAStreamOut) {
  ASSERT_TRUE(converts(fixture("av25.mp4"), output_, {"--audio-codec", "none"}));
  EXPECT_THAT(ffprobeJson(output_)["streams"], SizeIs(1));
  EXPECT_TRUE(streamOf(output_, "audio").is_null());
  ASSERT_TRUE(converts(fixture("av25.mp4"), output_, {"--video-codec", "none", "--force"}));
  EXPECT_TRUE(streamOf(output_, "video").is_null());
}

TEST_F(ConvertOptions, EndAndDurationAreExactToTheFrame) {
  struct Expectation {
    Arguments options;
    int first, count;
  };
  for (const auto& expected : {Expectation{{"--end", "2"}, 0, 50},
                               {{"--duration", "2"}, 0, 50},
                               {{"--duration", "0.04"}, 0, 1},
                               {{"--start", "1", "--end", "1.2"}, 25, 5},
                               {{"--start", "1", "--duration", "1.2"}, 25, 30},
                               {{"--start", "4", "--duration", "9"}, 100, 25},
                               {{"--end", "00:00:03.480"}, 0, 87}}) {
    SCOPED_TRACE(testing::PrintToString(expected.options));
    ASSERT_TRUE(converts(fixture("numbered25.mp4"), output_,
                         joined(expected.options, {"--force", "--encoder-preset", "ultrafast"})));
    EXPECT_EQ(shownNumbers(output_), countingFrom(expected.first, expected.count));
    EXPECT_NEAR(static_cast<double>(sampleCount(output_)), expected.count / 25.0 * 44100, 1024);
  }
}

TEST_F(ConvertOptions, ADurationShorterThanAPictureHasOne) {
  const auto source = folder_ / "slides.mkv";
  // Sound that needs a run-in would have the slides begin later than at whole seconds.
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-vf", "fps=1", "-c:v", "ffv1", "-c:a",
          "pcm_s16le", source.string()});
  const auto slides = shownNumbers(source);
  ASSERT_THAT(slides, SizeIs(5));
  for (const size_t i : {0, 2}) {
    EXPECT_TRUE(
        converts(source, output_, {"--force", "--start", std::to_string(i), "--duration", "0.4"}));
    EXPECT_THAT(shownNumbers(output_), testing::ElementsAre(slides[i]));
  }
}

TEST_F(ConvertOptions, ADurationThatEndsBeforeTheFirstPictureShowsThatOne) {
  // The sound begins 0.7 s before the pictures.
  const auto source = fixture("late-pictures.ts");
  EXPECT_TRUE(converts(source, output_, {"--duration", "0.4", "--video-option", "qp=1"}));
  const auto pictures = greyPictures(output_, 32, 18);
  EXPECT_THAT(pictures, SizeIs(1));
  EXPECT_NEAR(std::stod(streamOf(output_, "video")["duration"].get<std::string>()), 0.4, 0.05);
  EXPECT_GT(psnr(pictures.at(0), greyPictures(source, 32, 18).at(0)), 35);
  EXPECT_NEAR(static_cast<double>(sampleCount(output_)), 0.4 * 44100, 1024);
}

TEST_F(ConvertOptions, RotatedPicturesAreShownUpright) {
  // The source is to be turned for display, so either the target says so too, or it is turned.
  const auto video = videoOf("av-rotated.mp4", {});
  const bool isTurned = video["height"] > video["width"];
  double angle = 0;
  for (const auto& data : video.value("side_data_list", nlohmann::json::array()))
    if (data.contains("rotation")) angle = data["rotation"];
  EXPECT_NE(isTurned, std::fabs(angle) == 90);
}

TEST_F(ConvertOptions, WrongValuesAreWrongUsage) {
  for (const Arguments& options : {Arguments{"--size", "-x-"},
                                   {"--size", "0x10"},
                                   {"--size", "big"},
                                   {"--fps", "0"},
                                   {"--fps", "25/0"},
                                   {"--aspect", "16"},
                                   {"--video-bitrate", "fast"},
                                   {"--audio-bitrate", "-1"},
                                   {"--channels", "many"},
                                   {"--sample-rate", "x"},
                                   {"--video-option", "key"},
                                   {"--audio-option", "=1"},
                                   {"--start", "soon"},
                                   {"--start", "2", "--end", "1"},
                                   {"--duration", "0"},
                                   {"--progress", "loud"},
                                   {"--volume", "-1"},
                                   {"--no-such-option"},
                                   {"--end", "1", "--duration", "1"}}) {
    SCOPED_TRACE(testing::PrintToString(options));
    const auto result = convert(fixture("av25.mp4"), output_, options);
    EXPECT_TRUE(endsWithSentence(result, 2, options[0]));
    EXPECT_FALSE(std::filesystem::exists(output_));
  }
}

TEST_F(ConvertOptions, AStartBehindTheEndIsWrongUsage) {
  const auto result = convert(fixture("av25.mp4"), output_, {"--start", "100"});
  EXPECT_TRUE(endsWithSentence(result, 2, fixture("av25.mp4").string()));
  EXPECT_FALSE(std::filesystem::exists(output_));
}

TEST_F(ConvertOptions, ProgressAsJsonLines) {
  const RunResult result =
      convert(fixture("numbered25-long.mp4"), output_,
              {"--progress", "json", "--encoder-preset", "ultrafast", "--duration", "120"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "");
  std::istringstream lines(result.err);
  std::vector<nlohmann::json> states;
  for (std::string line; std::getline(lines, line);) states.push_back(nlohmann::json::parse(line));
  ASSERT_GE(states.size(), 2u);
  double before = 0;
  for (const auto& state : states) {
    EXPECT_GE(state["time"], before);
    before = state["time"];
    EXPECT_EQ(state["duration"], 120.0);
    EXPECT_GE(state["percent"], 0);
    EXPECT_LE(state["percent"], 100);
    EXPECT_TRUE(state["frames"].is_number_unsigned());
    EXPECT_EQ(state.contains("done"), &state == &states.back());
  }
  EXPECT_EQ(states.back()["done"], true);
  EXPECT_EQ(states.back()["percent"], 100);
  EXPECT_EQ(states.back()["frames"], 3000);
}

TEST_F(ConvertOptions, ProgressIsSilentWithoutATerminal) {
  EXPECT_TRUE(converts(fixture("numbered25.mp4"), output_, {"--progress", "bar"}));
  EXPECT_TRUE(converts(fixture("numbered25.mp4"), output_, {"--progress", "none", "--force"}));
}

}  // namespace
}  // namespace kestrel::test
