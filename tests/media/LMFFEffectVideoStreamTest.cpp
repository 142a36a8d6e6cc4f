#include <gmock/gmock.h>
#include <kestrel/LMFFEffectVideoStream.h>

#include <thread>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

using DataBuffer = LMFFEffectVideoStream::DataBuffer;

/// A media whose pictures are 64 × 36, yuv420p.
std::shared_ptr<LMFFMedia> smallPictures() { return openedMedia(fixture("raw.avi")); }

FramePtr yuvFrame(int width, int height, uint8_t luma) {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = width;
  frame->height = height;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  for (int y = 0; y < height; ++y)
    std::fill_n(frame->data[0] + y * frame->linesize[0], width, luma);
  for (const int plane : {1, 2})
    for (int y = 0; y < height / 2; ++y)
      std::fill_n(frame->data[plane] + y * frame->linesize[plane], width / 2, uint8_t{128});
  return frame;
}

std::vector<int> pixelAt(const BitmapImage& image, int x, int y) {
  const uint8_t* pixel = image.row(y) + x * 4;
  return {pixel, pixel + 4};
}

class LMFFEffectVideoStreamTest : public testing::Test {
 protected:
  /// Sets the stream up as a movie does.
  void configure(const std::shared_ptr<LMFFMedia>& media) {
    LMFFVideoFormat format = media->videoFormat();
    format.pix_fmt = AV_PIX_FMT_RGBA;
    stream_.setMedia(media);
    stream_.setOutputFormat(format);
    stream_.updateConverter();
  }

  LMFFEffectVideoStream stream_;
};

// Converting.

TEST_F(LMFFEffectVideoStreamTest, PictureIsConvertedAtItsOwnSize) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  const auto image = stream_.currentImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 64);
  EXPECT_EQ(image->height(), 36);
  EXPECT_EQ(stream_.dataBuffer(), nullptr);
  EXPECT_THAT(pixelAt(*image, 63, 35), ElementsAre(255, 255, 255, 255));
}

TEST_F(LMFFEffectVideoStreamTest, PictureHasTheConvertedFramesRows) {
  const auto media = smallPictures();
  media->videoStream()->codecContext()->width = 640;
  media->videoStream()->codecContext()->height = 480;
  configure(media);
  int32_t asked = 0;
  const auto note = [&asked](int32_t size) {
    asked = size;
    return DataBuffer();
  };
  stream_.writeFrame(yuvFrame(640, 480, 100).get(), note);
  const auto image = stream_.currentImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 640);
  EXPECT_EQ(image->height(), 480);
  EXPECT_EQ(image->bytesPerRow() * 480, asked);
  EXPECT_FALSE(image->isOwning());
}

TEST_F(LMFFEffectVideoStreamTest, LimitedRangeIsSpreadOverTheWholeOne) {
  configure(smallPictures());
  // (luma - 16) / 219 × 255
  for (const auto& [luma, grey] :
       {std::pair{16, 0}, {60, 51}, {126, 128}, {180, 191}, {235, 255}, {0, 0}, {255, 255}}) {
    stream_.writeFrame(yuvFrame(64, 36, static_cast<uint8_t>(luma)).get());
    const auto pixel = pixelAt(*stream_.currentImage(), 10, 10);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(pixel[i], grey, 1) << luma;
  }
}

TEST_F(LMFFEffectVideoStreamTest, FullRangeStaysWhereTheFrameSaysSo) {
  configure(smallPictures());
  FramePtr frame = yuvFrame(64, 36, 180);
  frame->color_range = AVCOL_RANGE_JPEG;
  stream_.writeFrame(frame.get());
  EXPECT_NEAR(pixelAt(*stream_.currentImage(), 10, 10)[0], 180, 1);
}

TEST_F(LMFFEffectVideoStreamTest, MatrixOfTheFrameIsHonoured) {
  configure(smallPictures());
  // Pure red, limited range: Y 81, Cb 90, Cr 240 by BT.601; Y 63, Cb 102, Cr 240 by BT.709.
  for (const auto& [matrix, luma, cb] :
       {std::tuple{AVCOL_SPC_SMPTE170M, 81, 90}, std::tuple{AVCOL_SPC_UNSPECIFIED, 81, 90},
        std::tuple{AVCOL_SPC_BT709, 63, 102}}) {
    FramePtr frame = yuvFrame(64, 36, static_cast<uint8_t>(luma));
    std::fill_n(frame->data[1], frame->linesize[1] * 18, static_cast<uint8_t>(cb));
    std::fill_n(frame->data[2], frame->linesize[2] * 18, uint8_t{240});
    frame->colorspace = matrix;
    stream_.writeFrame(frame.get());
    const auto pixel = pixelAt(*stream_.currentImage(), 20, 20);
    EXPECT_NEAR(pixel[0], 255, 2) << matrix;
    EXPECT_NEAR(pixel[1], 0, 2) << matrix;
    EXPECT_NEAR(pixel[2], 0, 2) << matrix;
  }
}

TEST_F(LMFFEffectVideoStreamTest, CallersFrameStaysAsItIs) {
  configure(smallPictures());
  FramePtr frame = yuvFrame(64, 36, 77);
  const uint8_t* data = frame->data[0];
  stream_.writeFrame(frame.get());
  EXPECT_EQ(frame->data[0], data);
  EXPECT_EQ(frame->data[0][0], 77);
  EXPECT_EQ(frame->colorspace, AVCOL_SPC_UNSPECIFIED);
  EXPECT_EQ(frame->color_range, AVCOL_RANGE_UNSPECIFIED);
  stream_.writeFrame(frame.get());  // once more, as it were
  EXPECT_TRUE(stream_.currentImage());
}

TEST_F(LMFFEffectVideoStreamTest, EachPictureReplacesTheOneBefore) {
  configure(smallPictures());
  for (const int luma : {16, 235, 16, 235}) {
    stream_.writeFrame(yuvFrame(64, 36, static_cast<uint8_t>(luma)).get());
    EXPECT_EQ(pixelAt(*stream_.currentImage(), 1, 1)[0], luma == 16 ? 0 : 255);
  }
}

TEST_F(LMFFEffectVideoStreamTest, DecodedPictureIsConvertedAsFfmpegDoes) {
  const auto media = openedMedia(fixture("av25.mp4"));
  configure(media);
  stream_.writeFrame(media->videoFrameAtTime(milliseconds(20)));
  const auto image = stream_.currentImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 320);
  EXPECT_EQ(image->height(), 180);
  // The upper left of the test picture's first frame: black numbers' field beside colour bars.
  const auto& source = *media->videoStream()->frame();
  for (const int x : {8, 100, 200, 310}) {
    const int luma = source.data[0][90 * source.linesize[0] + x];
    const int cb = source.data[1][45 * source.linesize[1] + x / 2] - 128;
    const int cr = source.data[2][45 * source.linesize[2] + x / 2] - 128;
    const double y = 255.0 / 219 * (luma - 16);
    const double scale = 255.0 / 224;
    const auto pixel = pixelAt(*image, x, 90);
    const auto near = [](double value) { return std::clamp(value, 0.0, 255.0); };
    EXPECT_NEAR(pixel[0], near(y + 1.402 * scale * cr), 12) << x;
    EXPECT_NEAR(pixel[1], near(y - 0.344136 * scale * cb - 0.714136 * scale * cr), 12) << x;
    EXPECT_NEAR(pixel[2], near(y + 1.772 * scale * cb), 12) << x;
    EXPECT_EQ(pixel[3], 255);
  }
}

TEST_F(LMFFEffectVideoStreamTest, FrameOfTheOutputsFormatPassesUnchanged) {
  const auto media = smallPictures();
  stream_.setMedia(media);
  stream_.setOutputFormat(media->videoFormat());
  stream_.updateConverter();
  int32_t size = 0;
  const auto provide = [&size](int32_t asked) {
    size = asked;
    return std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(asked));
  };
  stream_.writeFrame(yuvFrame(64, 36, 99).get(), provide);
  ASSERT_GT(size, 0);
  EXPECT_EQ(stream_.dataBuffer()->at(0), 99);
}

// Providers.

TEST_F(LMFFEffectVideoStreamTest, ProviderIsAskedOncePerPictureForAllItsRows) {
  configure(smallPictures());
  std::vector<int32_t> asked;
  const auto provide = [&asked](int32_t size) {
    asked.push_back(size);
    return std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size));
  };
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), provide);
  const int bytesPerRow = stream_.currentImage()->bytesPerRow();
  EXPECT_GE(bytesPerRow, 64 * 4);
  EXPECT_THAT(asked, ElementsAre(36 * bytesPerRow));
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), provide);
  EXPECT_EQ(asked.size(), 2u);
}

TEST_F(LMFFEffectVideoStreamTest, PictureIsInTheProvidersBuffer) {
  configure(smallPictures());
  DataBuffer buffer;
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), [&buffer](int32_t size) {
    buffer = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size), uint8_t{7});
    return buffer;
  });
  EXPECT_EQ(stream_.dataBuffer(), buffer);
  EXPECT_EQ(stream_.currentImage()->pixels(), buffer->data());
  EXPECT_THAT(pixelAt(*stream_.currentImage(), 63, 35), ElementsAre(255, 255, 255, 255));
  buffer->at(0) = 42;  // shown at once
  EXPECT_EQ(stream_.currentImage()->pixels()[0], 42);
}

TEST_F(LMFFEffectVideoStreamTest, AsManyBytesAsTheBufferHoldsAreCopied) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get(),
                     [](int32_t) { return std::make_shared<std::vector<uint8_t>>(5, uint8_t{1}); });
  EXPECT_THAT(*stream_.dataBuffer(), ElementsAre(255, 255, 255, 255, 255));
}

TEST_F(LMFFEffectVideoStreamTest, ProviderThatGivesNothingLeavesTheStreamsOwnPicture) {
  configure(smallPictures());
  int calls = 0;
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), [&calls](int32_t) {
    ++calls;
    return DataBuffer();
  });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(stream_.dataBuffer(), nullptr);
  EXPECT_THAT(pixelAt(*stream_.currentImage(), 0, 0), ElementsAre(255, 255, 255, 255));
}

TEST_F(LMFFEffectVideoStreamTest, NextPictureWithoutAProviderLetsGoOfTheBuffer) {
  configure(smallPictures());
  std::weak_ptr<std::vector<uint8_t>> buffer;
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), [&buffer](int32_t size) {
    auto made = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size));
    buffer = made;
    return made;
  });
  EXPECT_FALSE(buffer.expired());
  stream_.writeFrame(yuvFrame(64, 36, 16).get());
  EXPECT_TRUE(buffer.expired());
  EXPECT_EQ(pixelAt(*stream_.currentImage(), 0, 0)[0], 0);
}

// Wrapping.

TEST_F(LMFFEffectVideoStreamTest, FramesFirstPlaneIsBorrowed) {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_RGBA;
  frame->width = 5;
  frame->height = 3;
  ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  const auto image = stream_.imageForFrame(frame.get());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixels(), frame->data[0]);
  EXPECT_EQ(image->bytesPerRow(), frame->linesize[0]);
  EXPECT_EQ(image->width(), 5);
  EXPECT_EQ(image->height(), 3);
  EXPECT_FALSE(image->isOwning());
}

TEST_F(LMFFEffectVideoStreamTest, NoFrameOrNoPixelsIsNoPicture) {
  EXPECT_EQ(stream_.imageForFrame(nullptr), nullptr);
  EXPECT_EQ(stream_.imageForFrame(makeFrame().get()), nullptr);
}

TEST_F(LMFFEffectVideoStreamTest, CurrentPictureLiesAtTheOrigin) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  const auto image = stream_.currentCIImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->extent(), (Rect{{0, 0}, {64, 36}}));
}

TEST_F(LMFFEffectVideoStreamTest, CurrentPictureIsTheConvertedFrameOnceThereIsOne) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  const auto bitmap = stream_.currentImage();
  const auto image = stream_.currentCIImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->extent(), (Rect{{0, 0}, {64, 36}}));
  ASSERT_TRUE(image->bitmap());
  EXPECT_EQ(image->bitmap()->pixels(), bitmap->pixels());
}

// Without a picture.

TEST_F(LMFFEffectVideoStreamTest, UnconfiguredStreamGivesNoPictureAndAsksNobody) {
  stream_.writeFrame(yuvFrame(64, 36, 235).get(), [](int32_t) -> DataBuffer {
    ADD_FAILURE();
    return nullptr;
  });
  EXPECT_EQ(stream_.currentImage(), nullptr);
  EXPECT_EQ(stream_.currentCIImage(), nullptr);
}

TEST_F(LMFFEffectVideoStreamTest, FrameWithoutPixelsTakesThePictureAway) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  stream_.writeFrame(nullptr);
  EXPECT_EQ(stream_.currentImage(), nullptr);
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  stream_.writeFrame(makeFrame().get());
  EXPECT_EQ(stream_.currentImage(), nullptr);
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  EXPECT_TRUE(stream_.currentImage());
}

TEST_F(LMFFEffectVideoStreamTest, UnknownOutputFormatLeavesNoConverter) {
  stream_.setMedia(smallPictures());
  for (const int format : {-1, 100'000}) {
    stream_.setOutputFormat({format, 64, 36});
    stream_.updateConverter();
    stream_.writeFrame(yuvFrame(64, 36, 235).get());
    EXPECT_EQ(stream_.currentImage(), nullptr);
    EXPECT_EQ(stream_.dataBuffer(), nullptr);
  }
}

TEST_F(LMFFEffectVideoStreamTest, MediaWithoutPicturesLeavesNoConverter) {
  configure(openedMedia(fixture("tone.mp3")));
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  EXPECT_EQ(stream_.currentImage(), nullptr);
}

TEST_F(LMFFEffectVideoStreamTest, ReconfiguringKeepsThePictureUntilTheNextWrite) {
  const auto media = smallPictures();
  configure(media);
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  configure(media);
  ASSERT_TRUE(stream_.currentImage());
  EXPECT_EQ(pixelAt(*stream_.currentImage(), 0, 0)[0], 255);
  stream_.writeFrame(yuvFrame(64, 36, 16).get());
  EXPECT_EQ(pixelAt(*stream_.currentImage(), 0, 0)[0], 0);
}

TEST_F(LMFFEffectVideoStreamTest, FreedGraphConvertsNothing) {
  configure(smallPictures());
  stream_.free_graph();
  stream_.free_graph();
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  EXPECT_EQ(stream_.currentImage(), nullptr);
}

TEST_F(LMFFEffectVideoStreamTest, FreedPictureIsGone) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(64, 36, 235).get());
  stream_.free_frame_image_buffer();
  EXPECT_EQ(stream_.currentImage(), nullptr);
}

TEST_F(LMFFEffectVideoStreamTest, PictureOfAnotherSizeKeepsTheConfiguredSize) {
  configure(smallPictures());
  stream_.writeFrame(yuvFrame(32, 18, 235).get());
  const auto image = stream_.currentImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 64);
  EXPECT_EQ(image->height(), 36);
}

}  // namespace
}  // namespace kestrel::test
