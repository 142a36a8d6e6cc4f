#include "frames/DrawingSurface.h"

#include <kestrel/FilterRegistry.h>

#include <utility>

#include "support/FFmpegOwners.h"
#include "support/FramePlanes.h"
#include "support/StretchedImage.h"

namespace kestrel {

namespace {

Rect boundsOf(int width, int height) {
  return {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}};
}

std::shared_ptr<const Image> over(std::shared_ptr<const Image> image,
                                  std::shared_ptr<const Image> background) {
  const auto filter = FilterRegistry::filterWithName("CISourceOverCompositing");
  if (!filter) return nullptr;
  filter->setValue(std::move(image), kCIInputImageKey);
  filter->setValue(std::move(background), kCIInputBackgroundImageKey);
  return filter->outputImage();
}

}  // namespace

void DrawingSurface::create(int width, int height) {
  if (context_) return;
  auto context = std::make_unique<BitmapContext>(width, height);
  if (context->data()) context_ = std::move(context);
}

std::shared_ptr<const Image> DrawingSurface::content() const {
  if (latest_) return Image::fromPlanes(yuvPictureOf(latest_).value_or(YUVPicture{}));
  const BitmapContext& context = *context_;
  return Image::fromBitmap(BitmapImage::borrowing(context.data(), context.width(), context.height(),
                                                  context.bytesPerRow()),
                           Image::Alpha::kOpaque);
}

BitmapContext* DrawingSurface::context() {
  if (latest_) {
    renderer_.render(content(), boundsOf(width(), height()), context_->data(),
                     context_->bytesPerRow());
    latest_.reset();
  }
  return context_.get();
}

BitmapContext* DrawingSurface::share() {
  isShared_ = context_ != nullptr;
  return context();
}

bool DrawingSurface::drawInto(AVFrame& frame, const Image& image, bool byFields) {
  const bool isSameSize = frame.width == width() && frame.height == height();
  auto target = yuvTargetOf(frame);
  if (target) target->format.byFields = byFields && target->format.chromaShiftY == 1;
  if (isShared_ || !context_ || !isSameSize || !target) return false;
  const Rect bounds = boundsOf(width(), height());
  std::shared_ptr<const AVFrame> drawn = FramePtr(av_frame_clone(&frame));
  if (!drawn || !renderer_.render(over(stretchedImage(image, bounds), content()), bounds, *target))
    return false;
  latest_ = std::move(drawn);
  return true;
}

void DrawingSurface::draw(const Image& image, BitmapContext& context) const {
  const Rect bounds = boundsOf(context.width(), context.height());
  const auto picture = renderer_.bitmapImage(stretchedImage(image, bounds), bounds);
  if (picture) context.drawImage(*picture, bounds);
}

}  // namespace kestrel
