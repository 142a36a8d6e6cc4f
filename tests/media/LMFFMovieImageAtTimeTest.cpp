#include <gmock/gmock.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieImageProvider.h>
#include <kestrel/OperationQueue.h>

#include <atomic>
#include <cstring>
#include <semaphore>
#include <thread>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

using DataBuffer = LMFFMovieImageProvider::DataBuffer;
using ImagePtr = std::shared_ptr<const Image>;

DataBuffer bufferOf(int32_t size) {
  return std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size));
}

class LMFFMovieImageAtTime : public testing::Test {
 protected:
  void open(const char* name) { movie_.openMedias({videoMediaOf(fixture(name))}); }

  /// Answers the callbacks for images and notes what they get.
  void answerImages() {
    provider_->movieMediaImage = [this](LMFFMovie& movie, const ImagePtr& image) {
      EXPECT_EQ(&movie, &movie_);
      calls_.emplace_back("image");
      image_ = image;
    };
    provider_->movieMediaEffectImage = [this](LMFFMovie& movie, const ImagePtr& image) {
      EXPECT_EQ(&movie, &movie_);
      calls_.emplace_back("effect image");
      effectImage_ = image;
    };
  }

  std::shared_ptr<LMFFMovieImageProvider> provider_ = std::make_shared<LMFFMovieImageProvider>();
  std::vector<std::string> calls_;
  ImagePtr image_;
  ImagePtr effectImage_;
  LMFFMovie movie_;
};

// Images.

TEST_F(LMFFMovieImageAtTime, ProviderGetsTheFrameBeforeAndAfterEffectsInThisOrder) {
  open("av25.mp4");
  movie_.setOutputVideoSize({640, 480});
  answerImages();
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_THAT(calls_, ElementsAre("image", "effect image"));
  ASSERT_TRUE(image_ && effectImage_);
  EXPECT_EQ(image_->extent(), (Rect{{0, 0}, {320, 180}}));
  EXPECT_EQ(effectImage_->extent(), (Rect{{0, 0}, {640, 480}}));
  EXPECT_EQ(movie_.videoEffectStream()->dataBuffer(), nullptr);
}

TEST_F(LMFFMovieImageAtTime, ImagesMayBeRenderedLaterInAnotherThread) {
  open("av25.mp4");
  answerImages();
  movie_.decodeImageAtTime(milliseconds(20), provider_);
  const auto first = effectImage_;
  const ImageContext context;
  const auto early = context.bitmapImage(first, first->extent());
  for (int picture = 1; picture < 20; ++picture)
    movie_.decodeImageAtTime(milliseconds(40 * picture + 20), provider_);
  std::shared_ptr<const BitmapImage> late;
  std::jthread([&] { late = context.bitmapImage(first, first->extent()); }).join();
  for (int y = 0; y < 180; ++y)
    ASSERT_EQ(0, std::memcmp(early->row(y), late->row(y), 320 * 4)) << y;
}

TEST_F(LMFFMovieImageAtTime, WithoutAVideoMediaBothImagesAreNone) {
  answerImages();
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_THAT(calls_, ElementsAre("image", "effect image"));
  EXPECT_FALSE(image_ || effectImage_);
}

TEST_F(LMFFMovieImageAtTime, EveryCallbackIsOptional) {
  open("av25.mp4");
  movie_.decodeImageAtTime(0, provider_);
  movie_.decodeImageAtTime(0, std::shared_ptr<LMFFMovieImageProvider>());
  EXPECT_TRUE(movie_.videoEffectStream()->currentImage());  // the picture was made all the same
  answerImages();
  provider_->movieMediaImage = nullptr;
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_THAT(calls_, ElementsAre("effect image"));
}

// Data.

TEST_F(LMFFMovieImageAtTime, ProviderIsAskedForABufferThatTheFrameIsCopiedInto) {
  open("av25.mp4");
  movie_.setOutputVideoSize({640, 480});
  answerImages();
  DataBuffer buffer;
  provider_->movieFormatSize = [&](LMFFMovie& movie, const LMFFVideoFormat& format, int32_t size) {
    EXPECT_EQ(&movie, &movie_);
    EXPECT_EQ(format, (LMFFVideoFormat{AV_PIX_FMT_RGBA, 320, 180}));
    EXPECT_GE(size, 320 * 180 * 4);
    calls_.emplace_back("data");
    buffer = bufferOf(size);
    return buffer;
  };
  movie_.decodeImageAtTime(milliseconds(20), provider_);
  EXPECT_THAT(calls_, ElementsAre("data", "image", "effect image"));
  ASSERT_TRUE(image_ && effectImage_);
  EXPECT_EQ(movie_.videoEffectStream()->dataBuffer(), buffer);
  EXPECT_EQ(image_->bitmap()->pixels(), buffer->data());
  EXPECT_EQ(buffer->at(3), 255);  // the first pixel's alpha
}

TEST_F(LMFFMovieImageAtTime, ProviderThatGivesNoBufferGetsNoImages) {
  open("av25.mp4");
  answerImages();
  provider_->movieFormatSize = [](LMFFMovie&, const LMFFVideoFormat&, int32_t) {
    return DataBuffer();
  };
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_THAT(calls_, ElementsAre("image", "effect image"));
  EXPECT_FALSE(image_ || effectImage_);
}

// The queue.

TEST_F(LMFFMovieImageAtTime, WithoutWaitingItIsMadeLaterAndTheProviderKept) {
  open("av25.mp4");
  std::binary_semaphore hold{0};
  movie_.decodeQueue()->addOperation([&] { hold.acquire(); });
  answerImages();
  movie_.decodeImageAtTime(0, provider_, false);
  EXPECT_TRUE(calls_.empty());
  provider_.reset();
  hold.release();
  movie_.flushOperation();
  EXPECT_THAT(calls_, ElementsAre("image", "effect image"));
}

TEST_F(LMFFMovieImageAtTime, ProviderMayAskForAnotherPicture) {
  open("av25.mp4");
  const auto inner = std::make_shared<LMFFMovieImageProvider>();
  inner->movieMediaImage = [&](LMFFMovie&, const ImagePtr&) { calls_.emplace_back("inner"); };
  provider_->movieMediaImage = [&](LMFFMovie& movie, const ImagePtr&) {
    EXPECT_TRUE(movie.decodeQueue()->isCurrentQueue());
    calls_.emplace_back("outer");
    movie.decodeImageAtTime(milliseconds(100), inner);
    calls_.emplace_back("outer again");
  };
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_THAT(calls_, ElementsAre("outer", "inner", "outer again"));
}

// The delegate.

TEST_F(LMFFMovieImageAtTime, DelegateIsNotOwned) {
  EXPECT_EQ(movie_.delegate(), nullptr);
  movie_.setDelegate(provider_);
  EXPECT_EQ(movie_.delegate(), provider_);
  provider_.reset();
  EXPECT_EQ(movie_.delegate(), nullptr);
}

// Subtitles.

TEST_F(LMFFMovieImageAtTime, ExternalSubtitleOfTheTimeIsSet) {
  open("av25.mp4");
  ASSERT_TRUE(movie_.openSubtitle(fixture("subtitles.srt").string()));
  const auto stream = movie_.videoEffectStream();
  movie_.decodeImageAtTime(milliseconds(100), provider_);
  EXPECT_EQ(stream->subtitleCurrentString(), std::nullopt);
  movie_.decodeImageAtTime(milliseconds(500), provider_);
  EXPECT_EQ(stream->subtitleCurrentString(), "First line");
  movie_.decodeImageAtTime(milliseconds(1500), provider_);
  EXPECT_EQ(stream->subtitleCurrentString(), "Second line\nwith a second row");
}

TEST_F(LMFFMovieImageAtTime, SubtitleTimeIsItsMedias) {
  open("av25.mp4");
  ASSERT_TRUE(movie_.openSubtitle(fixture("subtitles.srt").string()));
  movie_.subtitle()->setMovie_position(kSecond);
  movie_.decodeImageAtTime(milliseconds(1500), provider_);
  EXPECT_EQ(movie_.videoEffectStream()->subtitleCurrentString(), "First line");
}

TEST_F(LMFFMovieImageAtTime, WithoutAnExternalSubtitleTheTextIsTakenAway) {
  open("av25.mp4");
  movie_.videoEffectStream()->setSubtitleCurrentString("left over");
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_EQ(movie_.videoEffectStream()->subtitleCurrentString(), std::nullopt);
}

TEST_F(LMFFMovieImageAtTime, SubtitleIsDrawnIntoTheEffectImageOnly) {
  open("av25.mp4");
  movie_.openSubtitle(fixture("subtitles.srt").string());
  movie_.setSubtitleFont(Font::systemFontOfSize(20));
  answerImages();
  movie_.decodeImageAtTime(milliseconds(500), provider_);
  const ImageContext context;
  const auto plain = context.bitmapImage(image_, image_->extent());
  const auto finished = context.bitmapImage(effectImage_, effectImage_->extent());
  int changedBelow = 0;
  for (int y = 0; y < 180; ++y) {
    const bool isChanged = std::memcmp(plain->row(y), finished->row(y), 320 * 4) != 0;
    EXPECT_FALSE(isChanged && y < 140) << y;
    if (isChanged) ++changedBelow;
  }
  EXPECT_GE(changedBelow, 10);
}

TEST_F(LMFFMovieImageAtTime, FilesBitmapSubtitleIsTakenAwayWhereThereIsNone) {
  open("av25.mp4");
  movie_.videoEffectStream()->setMediaSubtitleImage(Image::emptyInfiniteImage());
  movie_.decodeImageAtTime(0, provider_);
  EXPECT_EQ(movie_.videoEffectStream()->mediaSubtitleImage(), nullptr);
}

// While the host changes the look.

TEST_F(LMFFMovieImageAtTime, SettingsMayChangeWhilePicturesAreMade) {
  open("video-only.mp4");
  movie_.openSubtitle(fixture("subtitles.srt").string());
  movie_.setExportMovie(true);
  const ImageContext context;
  int rendered = 0;
  provider_->movieMediaEffectImage = [&](LMFFMovie&, const ImagePtr& image) {
    if (context.bitmapImage(image, {{0, 0}, {64, 64}})) ++rendered;
  };
  std::atomic<bool> isRunning = true;
  std::jthread host([&] {
    const std::string effects[] = {"Color Invert", "Copper", "none", "1935"};
    for (int i = 0; isRunning; ++i) {
      const auto step = static_cast<float>(i % 10) / 10;
      movie_.setHflip(i % 2 == 0);
      movie_.setVflip(i % 3 == 0);
      movie_.setRotate(step * 90);
      movie_.setSaturation(step);
      movie_.setBrightness(step);
      movie_.setContrast(step);
      movie_.setHue(step);
      movie_.setZoomType(i % 8);
      movie_.setAspectType(i % 3);
      movie_.setCropRect({{0, 0}, {320.0 - i % 100, 180.0 - i % 50}});
      movie_.setOutputVideoSize({320.0 + i % 3, 180});
      movie_.setEffectName(effects[i % 4]);
      movie_.setWatermark(i % 2 ? Image::fromColor({1, 0, 0, 0.5}) : nullptr);
      movie_.setSubtitleFont(Font::systemFontOfSize(10 + i % 5));
      movie_.setSubtitleColor(Color{step, 1, 1, 1});
      movie_.setSubtitlePosition(step);
      movie_.setFullSubtitleText(i % 2 == 0);
    }
  });
  for (int picture = 0; picture < 40; ++picture)
    movie_.decodeImageAtTime(milliseconds(40 * picture + 20), provider_);
  isRunning = false;
  host.join();
  EXPECT_EQ(rendered, 40);
}

}  // namespace
}  // namespace kestrel::test
