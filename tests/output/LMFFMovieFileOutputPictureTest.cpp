#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pictures.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::fieldOf;
using test::greyPicture;
using test::meanLumas;
using test::number;
using test::packetsOf;
using test::smallFormat;
using test::streamOf;
using test::TempDir;
using test::writePictures;

/// An output that has been started with one video stream.
class PictureOutput : public LMFFMovieFileOutput {
 public:
  PictureOutput(const std::filesystem::path& path, int codec, const Entries& options = {})
      : PictureOutput(path, smallFormat(codec), options) {}

  PictureOutput(const std::filesystem::path& path, const LMFFMovieFileOutputFormat& format,
                const Entries& options = {}) {
    setMovieFormat(format);
    setVideoOptions(options);
    test::start(*this, path, true, false);
  }
};

/// The presentation times of a file's video packets in the order of display, as numbers of frames.
std::vector<int> framesOf(const std::filesystem::path& file, double framerate) {
  std::vector<int> frames;
  for (const nlohmann::json& packet : packetsOf(file, "v")) {
    frames.push_back(static_cast<int>(std::lround(number(packet["pts_time"]) * framerate)));
  }
  std::sort(frames.begin(), frames.end());
  return frames;
}

std::vector<int> upTo(int count) {
  std::vector<int> numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

// With and without delay, frame threads and B pictures.
TEST(LMFFMovieFileOutputPicture, EveryPictureArrivesOnceAndInOrder) {
  const TempDir dir;
  for (const auto& [name, codec] : {std::pair{"h264.mp4", AV_CODEC_ID_H264},
                                    {"hevc.mkv", AV_CODEC_ID_HEVC},
                                    {"mpeg4.avi", AV_CODEC_ID_MPEG4},
                                    {"mpeg2.mkv", AV_CODEC_ID_MPEG2VIDEO},
                                    {"mjpeg.mov", AV_CODEC_ID_MJPEG},
                                    {"ffv1.mkv", AV_CODEC_ID_FFV1},
                                    {"vp8.webm", AV_CODEC_ID_VP8},
                                    {"prores.mov", AV_CODEC_ID_PRORES}}) {
    PictureOutput output(dir / name, codec);
    writePictures(output, 45);
    EXPECT_EQ(output.video_pts(), 45) << name;
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << name << ": " << output.lastError().message;
    EXPECT_EQ(streamOf(dir / name, "v")["nb_read_packets"], "45") << name;
    const std::vector<double> lumas = meanLumas(dir / name);
    ASSERT_EQ(lumas.size(), 45u) << name;
    for (int i = 0; i < 45; i++) {
      EXPECT_NEAR(lumas[i], 16 + 4 * i, 3) << name << " picture " << i;
    }
  }
}

TEST(LMFFMovieFileOutputPicture, BPicturesOfAnEncoderKeepTheirTimes) {
  const TempDir dir;
  for (const auto& [name, codec] : {std::pair{"a.mp4", AV_CODEC_ID_MPEG4},
                                    {"a.mkv", AV_CODEC_ID_MPEG2VIDEO},
                                    {"b.mp4", AV_CODEC_ID_H264}}) {
    PictureOutput output(dir / name, codec, {{"bf", "2"}});
    writePictures(output, 31);
    output.stopOutput();
    EXPECT_EQ(framesOf(dir / name, 25), upTo(31)) << name;
    EXPECT_NEAR(number(streamOf(dir / name, "v")["start_time"]), 0, 0.001) << name;
  }
}

TEST(LMFFMovieFileOutputPicture, LastPictureLastsAsLongAsTheOthers) {
  const TempDir dir;
  for (const char* name : {"a.mp4", "a.mov", "a.mkv", "a.avi"}) {
    PictureOutput output(dir / name, AV_CODEC_ID_MPEG4);
    writePictures(output, 25);
    output.stopOutput();
    const nlohmann::json last = packetsOf(dir / name, "v").back();
    EXPECT_NEAR(number(last["duration_time"]), 0.04, 0.0005) << name;
    EXPECT_NEAR(test::lengthOf(dir / name), 1, 0.0005) << name;
  }
}

TEST(LMFFMovieFileOutputPicture, LengthIsThatOfThePictures) {
  const TempDir dir;
  LMFFMovieFileOutputFormat format = smallFormat(AV_CODEC_ID_H264);
  format.framerate = 30000;
  format.frameTime = 1001;
  PictureOutput output(dir / "a.mp4", format);
  writePictures(output, 40);
  EXPECT_EQ(output.video_output_time(), 1334667);  // 40 × 1001 / 30000 s
  output.stopOutput();
  const nlohmann::json stream = streamOf(dir / "a.mp4", "v");
  EXPECT_EQ(stream["r_frame_rate"], "30000/1001");
  EXPECT_EQ(stream["avg_frame_rate"], "30000/1001");
  EXPECT_NEAR(number(stream["duration"]), 40 * 1001 / 30000.0, 1e-6);
}

TEST(LMFFMovieFileOutputPicture, PicturesLastAsLongAsTheyAreSaidTo) {
  const TempDir dir;
  PictureOutput output(dir / "a.mp4", AV_CODEC_ID_MPEG4);
  const std::unique_ptr<BitmapContext> context = output.createCGContext();
  ASSERT_NE(context, nullptr);
  output.writeCGContext(context.get(), 3);
  EXPECT_EQ(output.video_pts(), 3);
  EXPECT_EQ(output.video_output_time(), 120000);
  output.writeCGContext(context.get());
  EXPECT_EQ(output.video_pts(), 4);
  output.writeCGContext(context.get(), 5);
  EXPECT_EQ(output.video_pts(), 9);
  output.stopOutput();
  EXPECT_EQ(framesOf(dir / "a.mp4", 25), (std::vector<int>{0, 3, 4}));
  std::vector<double> durations;
  for (const nlohmann::json& packet : packetsOf(dir / "a.mp4", "v")) {
    durations.push_back(number(packet["duration_time"]));
  }
  EXPECT_EQ(durations, (std::vector<double>{0.12, 0.04, 0.2}));
  EXPECT_EQ(streamOf(dir / "a.mp4", "v")["duration"], "0.360000");
}

// With B pictures the packets leave in another order than the pictures came.
TEST(LMFFMovieFileOutputPicture, DurationsFollowTheirPictures) {
  const TempDir dir;
  PictureOutput output(dir / "a.mp4", AV_CODEC_ID_H264, {{"bf", "3"}});
  const std::unique_ptr<BitmapContext> context = output.createCGContext();
  int total = 0;
  for (int i = 0; i < 20; i++) {
    const int duration = i % 3 + 1;
    output.writeCGContext(context.get(), duration);
    total += duration;
  }
  output.stopOutput();
  EXPECT_NEAR(test::lengthOf(dir / "a.mp4"), total / 25.0, 1e-6);
}

TEST(LMFFMovieFileOutputPicture, PictureIsRepeatedWhenItIsWrittenAgain) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_FFV1);
  output.writeVideoFrame(greyPicture(160, 120, 90).get());
  output.writeVideoFrameDuration({1, 25});
  output.writeVideoFrameDuration({1, 25});
  output.stopOutput();
  const std::vector<std::string> sums = test::pictureSums(dir / "a.mkv");
  ASSERT_EQ(sums.size(), 3u);
  EXPECT_EQ(sums[1], sums[0]);
  EXPECT_EQ(sums[2], sums[0]);
  EXPECT_EQ(framesOf(dir / "a.mkv", 25), upTo(3));
}

// Time passes all the same, and the encoder goes on.
TEST(LMFFMovieFileOutputPicture, WritingBeforeThereIsAPictureEncodesNothing) {
  const TempDir dir;
  for (const auto& [name, codec] :
       {std::pair{"a.mkv", AV_CODEC_ID_H264}, {"b.mkv", AV_CODEC_ID_MPEG4}}) {
    PictureOutput output(dir / name, codec);
    ASSERT_TRUE(output.videoConverter()->isOutputEmpty());
    output.writeVideoFrameDuration({1, 25});
    output.writeVideoFrameDuration({1, 25});
    EXPECT_EQ(output.video_pts(), 2);
    writePictures(output, 30);
    output.stopOutput();
    std::vector<int> expected = upTo(30);
    for (int& frame : expected) frame += 2;
    EXPECT_EQ(framesOf(dir / name, 25), expected) << name;
  }
}

TEST(LMFFMovieFileOutputPicture, AskingForAPacketEarlyLosesNothing) {
  const TempDir dir;
  PictureOutput output(dir / "a.mp4", AV_CODEC_ID_H264);
  const FramePtr blank = makeFrame();
  for (int i = 0; i < 40; i++) {
    writePictures(output, 1);
    EXPECT_FALSE(output.writeFrame(blank.get(), output.videoStream()));
  }
  output.stopOutput();
  EXPECT_EQ(framesOf(dir / "a.mp4", 25), upTo(40));
}

TEST(LMFFMovieFileOutputPicture, NullFramesDrainTheEncoderPacketByPacket) {
  const TempDir dir;
  PictureOutput output(dir / "a.mp4", AV_CODEC_ID_H264);
  writePictures(output, 10);
  int packets = 0;
  while (output.writeFrame(nullptr, output.videoStream())) ++packets;
  EXPECT_EQ(packets, 10);  // the encoder looks further ahead than ten pictures
  EXPECT_FALSE(output.lastError());
  writePictures(output, 1);  // too late
  EXPECT_TRUE(output.lastError());
  output.stopOutput();
  EXPECT_EQ(framesOf(dir / "a.mp4", 25), upTo(10));
}

TEST(LMFFMovieFileOutputPicture, FramesMayBeEncodedWithTimesOfTheirOwn) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_MPEG4);
  const FramePtr frame = greyPicture(160, 120, 50);
  bool isWritten = false;
  for (const int64_t time : {0, 1, 4}) {
    frame->pts = time;
    isWritten = output.writeFrame(frame.get(), output.videoStream()) || isWritten;
    EXPECT_EQ(frame->pts, time);
  }
  EXPECT_TRUE(isWritten);
  EXPECT_EQ(output.video_pts(), 0);
  EXPECT_FALSE(output.writeFrame(frame.get(), nullptr));
  output.stopOutput();
  EXPECT_EQ(framesOf(dir / "a.mkv", 25), (std::vector<int>{0, 1, 4}));
}

TEST(LMFFMovieFileOutputPicture, FrameForTheEncoderIsRefusedInAnotherSizeOrFormat) {
  const auto frameOf = [](AVPixelFormat format, int width, int height) {
    FramePtr frame = makeFrame();
    frame->format = format;
    frame->width = width;
    frame->height = height;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
  };
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(test::smallFormat(AV_CODEC_ID_MPEG4));
  test::start(output, dir / "a.mkv", true, false);
  for (const FramePtr& other :
       {frameOf(AV_PIX_FMT_YUV420P, 16, 16), frameOf(AV_PIX_FMT_GRAY8, 160, 120)})
    EXPECT_FALSE(output.writeFrame(other.get(), output.videoStream()));
  EXPECT_NE(output.lastError().message.find("16 x 16, yuv420p"), std::string::npos)
      << output.lastError().message;
  test::writePictures(output, 3);
  output.stopOutput();
  EXPECT_EQ(packetsOf(dir / "a.mkv", "v").size(), 3u);
}

TEST(LMFFMovieFileOutputPicture, FrameOfAnotherSizeAndFormatIsConverted) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_MPEG4);
  const FramePtr picture = test::rgbPicture(333, 77, {255, 255, 255});
  picture->pts = 77;
  output.writeVideoFrame(picture.get());
  EXPECT_EQ(picture->pts, 77);
  output.stopOutput();
  const std::vector<double> lumas = meanLumas(dir / "a.mkv");
  ASSERT_EQ(lumas.size(), 1u);
  EXPECT_NEAR(lumas[0], 235, 2);
}

// Decoded frames say which type they were; that is no order to the encoder.
TEST(LMFFMovieFileOutputPicture, EncoderChoosesThePictureTypes) {
  const TempDir dir;
  for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_MPEG4}) {
    PictureOutput output(dir / "a.mkv", codec);
    const FramePtr picture = greyPicture(160, 120, 50);
    picture->pict_type = AV_PICTURE_TYPE_I;
    for (int i = 0; i < 24; i++) output.writeVideoFrame(picture.get());
    output.stopOutput();
    const auto packets = packetsOf(dir / "a.mkv", "v");
    EXPECT_EQ(std::count_if(packets.begin(), packets.end(),
                            [](const auto& each) {
                              return each["flags"].template get<std::string>()[0] == 'K';
                            }),
              2);
  }
}

TEST(LMFFMovieFileOutputPicture, ContextToDrawIntoHasTheSizeOfTheOutput) {
  const TempDir dir;
  const PictureOutput output(dir / "a.mkv", AV_CODEC_ID_MPEG4);
  const std::unique_ptr<BitmapContext> context = output.createCGContext();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->width(), 160);
  EXPECT_EQ(context->height(), 120);
  EXPECT_EQ(LMFFMovieFileOutput().createCGContext(), nullptr);
}

TEST(LMFFMovieFileOutputPicture, FrameItemIsEncoded) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_FFV1);
  const FramePtr picture = greyPicture(160, 120, 77);
  output.writeImage(LMFFImage::imageWithFrame(picture.get()));
  EXPECT_EQ(output.video_pts(), 1);
  output.stopOutput();
  EXPECT_EQ(meanLumas(dir / "a.mkv"), std::vector<double>{77});
}

TEST(LMFFMovieFileOutputPicture, ItemWithoutFrameAndPacketIsNothing) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_FFV1);
  output.writeVideoFrame(greyPicture(160, 120, 77).get());
  output.writeImage(nullptr);
  output.writeImage(std::make_shared<LMFFImage>());
  output.writeImage(LMFFImage::imageWithFrame(nullptr));
  output.writeImage(LMFFImage::imageWithPacket(nullptr));
  EXPECT_EQ(output.video_pts(), 1);
  output.stopOutput();
  EXPECT_EQ(packetsOf(dir / "a.mkv", "v").size(), 1u);
}

TEST(LMFFMovieFileOutputPicture, PicturesWithoutAStreamOrAStartAreIgnored) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  const FramePtr picture = greyPicture(160, 120, 77);
  output.writeVideoFrame(picture.get());
  output.writeVideoFrameDuration({1, 25});
  output.writeVideoFrame(nullptr);
  output.writeCGContext(nullptr);
  output.openVideo();
  output.writeVideoFrame(picture.get());
  EXPECT_FALSE(output.writeFrame(picture.get(), output.videoStream()));
  EXPECT_EQ(output.video_pts(), 0);
}

// A clock of 0 or less than 0 makes time stand still or run backwards, not the program stop.
TEST(LMFFMovieFileOutputPicture, DurationsWithoutMeaningAreSurvived) {
  const TempDir dir;
  PictureOutput output(dir / "a.mkv", AV_CODEC_ID_MPEG4);
  writePictures(output, 1);
  output.writeVideoFrameDuration({1, 0});
  output.writeVideoFrameDuration({0, 0});
  output.writeVideoFrameDuration({0, 25});
  output.writeVideoFrameDuration({INT32_MAX, 1});
  output.writeVideoFrameDuration({-1, 25});
  LMFFMovieFileOutputFormat format = output.movieFormat();
  format.framerate = 0;
  output.setMovieFormat(format);
  writePictures(output, 1);
  output.stopOutput();
  SUCCEED();
}

TEST(LMFFMovieFileOutputPicture, DvdIsWritten) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  LMFFMovieFileOutputFormat format = smallFormat();
  format.width = 720;
  format.height = 576;
  format.aspect = 16 / 9.0F;
  format.video_bitrate = 4000000;
  format.sample_rate = 48000;
  output.setMovieFormat(format);
  test::start(output, dir / "a.dvd", true, true);
  for (int i = 0; i < 30; i++) {
    writePictures(output, 1);
    test::writeTone(output, 1764, 1764 * i);
  }
  output.finishAudio();
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(meanLumas(dir / "a.dvd").size(), 30u);
  const nlohmann::json stream = streamOf(dir / "a.dvd", "v");
  EXPECT_EQ(stream["codec_name"], "mpeg2video");
  EXPECT_EQ(stream["display_aspect_ratio"], "16:9");
  EXPECT_EQ(std::filesystem::file_size(dir / "a.dvd") % 2048, 0u);
}

TEST(LMFFMovieFileOutputPicture, SoundAndPictureBeginTogether) {
  const TempDir dir;
  for (const auto& [name, video, audio] : {std::tuple{"a.mp4", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
                                           {"a.mkv", AV_CODEC_ID_H264, AV_CODEC_ID_MP3},
                                           {"a.ts", AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MP2}}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(video, audio));
    test::start(output, dir / name, true, true);
    for (int i = 0; i < 50; i++) {
      writePictures(output, 1);
      test::writeTone(output, 1764, 1764 * i);
    }
    output.finishAudio();
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << name << ": " << output.lastError().message;
    const double videoStart = number(streamOf(dir / name, "v")["start_time"]);
    const double audioStart = number(streamOf(dir / name, "a")["start_time"]);
    EXPECT_NEAR(audioStart, videoStart, 0.03) << name;
    EXPECT_EQ(meanLumas(dir / name).size(), 50u) << name;
  }
}

}  // namespace
}  // namespace kestrel
