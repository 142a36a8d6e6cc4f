#include <kestrel/BitmapImage.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieImageProvider.h>

#include <algorithm>
#include <exception>

#include "media/LMFFMovieState.h"
#include "support/StretchedImage.h"

namespace kestrel {

namespace {

/// A picture is enlarged a hundred times at most.
constexpr double kLeastRatio = 0.01;

/// A fitted size comes of a ratio in single precision; so much of it, in parts, is no pixel more.
constexpr double kInexact = 1e-6;

}  // namespace

void LMFFMovie::decodeImage(const std::function<void()>& work, bool wait) {
  const auto queue = decodeQueue();
  const auto thrown = std::make_shared<std::exception_ptr>();
  const auto operation = std::make_shared<BlockOperation>([work, thrown] {
    try {
      work();
    } catch (...) {
      *thrown = std::current_exception();
    }
  });
  if (!queue || queue->isCurrentQueue())
    operation->start();
  else
    queue->addOperation(operation);
  if (!wait) return;
  operation->waitUntilFinished();
  if (*thrown) std::rethrow_exception(*thrown);
}

/// While the movie plays, a late picture is worth more than the right one later still.
AVFrame* LMFFMovie::frameAtTime(LMFFMedia& media, int64_t time) const {
  if (isPlay()) return media.videoFrameAtTime(time);
  media.pictureAtTime(time);
  const auto stream = media.videoStream();
  return stream ? stream->frame() : nullptr;
}

void LMFFMovie::decodeImageAtTime(int64_t time, bool decode, const ImageAction& action) {
  decodeImage(
      [&] {
        updateCurrentMedias();
        const auto media = currentVideoMedia();
        std::shared_ptr<LMFFImage> image;
        if (media && decode)
          image = LMFFImage::imageWithFrame(frameAtTime(*media, time - media->movie_position()));
        else if (media)
          image = media->readNextVideoPacket();
        action(image);
      },
      true);
}

Rect LMFFMovie::scaleRect(const Rect& rect, const Rect& destination) const {
  const auto widthRatio = static_cast<float>(rect.size.width / destination.size.width);
  const auto heightRatio = static_cast<float>(rect.size.height / destination.size.height);
  const double divisor =
      std::max(static_cast<double>(std::max(widthRatio, heightRatio)), kLeastRatio);
  const Size size{rect.size.width / divisor, rect.size.height / divisor};
  return {{destination.origin.x + (destination.size.width - size.width) * 0.5,
           destination.origin.y + (destination.size.height - size.height) * 0.5},
          size};
}

std::shared_ptr<const BitmapImage> LMFFMovie::thumbnailAtTime(int64_t time, const Size& size) {
  const auto media = videoMediaAtTime(time);
  const auto stream = videoEffectStream();
  if (!media || !stream || isEmpty({{0, 0}, size})) return nullptr;
  std::shared_ptr<const BitmapImage> thumbnail;
  decodeImage(
      [&] {
        media->thumbnailAtTime(time - media->movie_position(), [&](AVFrame* frame) {
          stream->writeFrame(frame);
          const auto image = stream->currentEffectImage();
          const Rect fitted = scaleRect(image ? image->extent() : Rect{}, {{0, 0}, size});
          const Rect target = integral(
              {{0, 0}, {fitted.size.width * (1 - kInexact), fitted.size.height * (1 - kInexact)}});
          if (image && !isEmpty(target))
            thumbnail = state_->imageContext.bitmapImage(stretchedImage(*image, target), target);
        });
        media->seek(currentTime() - media->movie_position());
      },
      true);
  return thumbnail;
}

void LMFFMovie::decodeImageAtTime(int64_t time,
                                  const std::shared_ptr<LMFFMovieImageProvider>& provider,
                                  bool wait) {
  decodeImage([this, time, provider] { provideImage(time, provider.get()); }, wait);
}

void LMFFMovie::provideImage(int64_t time, LMFFMovieImageProvider* provider) {
  updateCurrentMedias();
  const auto stream = videoEffectStream();
  if (!stream) return;
  const auto media = currentVideoMedia();
  const int64_t offset = media ? time - media->movie_position() : time;
  const AVFrame* frame = media ? frameAtTime(*media, offset) : nullptr;
  stream->setMediaSubtitleImage(media ? media->subtitleAtTime(offset) : nullptr);
  const auto texts = subtitle();
  stream->showTexts(texts, texts ? time - texts->movie_position() : time);

  const bool wantsData = provider && provider->movieFormatSize;
  LMFFEffectVideoStream::DataProvider dataProvider;
  if (wantsData)
    dataProvider = [&](int32_t size) {
      return provider->movieFormatSize(*this, stream->outputDataFormat(), size);
    };
  stream->writeFrame(frame, dataProvider);

  auto image = stream->currentCIImage();
  auto effectImage = stream->currentEffectImage();
  if (wantsData && !stream->dataBuffer()) {
    image = nullptr;
    effectImage = nullptr;
  }
  if (!provider) return;
  if (provider->movieMediaImage) provider->movieMediaImage(*this, image);
  if (provider->movieMediaEffectImage) provider->movieMediaEffectImage(*this, effectImage);
}

}  // namespace kestrel
