#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

#include "media/EffectVideoStreamState.h"
#include "support/FrameLight.h"
#include "support/FramePlanes.h"
#include "support/PictureColor.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int64_t kFourByThree = 1;
constexpr int64_t kSixteenByNine = 2;

bool hasAlpha(int pixelFormat) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  return format && (format->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

}  // namespace

LMFFEffectVideoStream::LMFFEffectVideoStream() : state_(std::make_unique<State>()) {}

LMFFEffectVideoStream::~LMFFEffectVideoStream() {
  free_frame_image_buffer();
  free_graph();
}

void LMFFEffectVideoStream::free_graph() {
  state_->convertPending();  // the converter's last service to the picture that there is
  state_->converter.reset();
}

void LMFFEffectVideoStream::free_frame_image_buffer() {
  state_->imageFrame.reset();
  state_->pending.reset();
}

void LMFFEffectVideoStream::updateConverter() {
  free_graph();
  const auto input = media();
  state_->converter.emplace(input ? input->videoFormat() : LMFFVideoFormat{},
                            outputFormat().pix_fmt);
}

/// A frame that is refused shows as an empty picture.
void LMFFEffectVideoStream::State::convert(const std::shared_ptr<const AVFrame>& frame) {
  imageFrame.reset();
  if (!frame || !converter) return;
  isOpaque = !hasAlpha(frame->format);
  imageFrame = canWait(frame) ? drawn(frame) : converter->convert(*frame);
}

/// The bytes of a picture that could wait: those that the image engine makes of it, so that it
/// looks the same to the bit whether somebody asked for them or not. Null without memory.
FramePtr LMFFEffectVideoStream::State::drawn(const std::shared_ptr<const AVFrame>& frame) const {
  FramePtr bytes = makeFrame();
  bytes->format = AV_PIX_FMT_RGBA;
  bytes->width = frame->width;
  bytes->height = frame->height;
  const Rect bounds{{0, 0}, {1.0 * frame->width, 1.0 * frame->height}};
  const auto image = Image::fromPlanes(yuvPictureOf(frame).value_or(YUVPicture{}));
  const bool isDrawn = av_frame_get_buffer(bytes.get(), 0) >= 0 &&
                       renderer.render(image, bounds, bytes->data[0], bytes->linesize[0]);
  return isDrawn ? std::move(bytes) : nullptr;
}

/// True when the image engine can do without the converter, which would not change more than the
/// form of the pixels.
bool LMFFEffectVideoStream::State::canWait(const std::shared_ptr<const AVFrame>& frame) const {
  return converter->pixelFormat() == AV_PIX_FMT_RGBA &&
         LMFFVideoFormat{frame->format, frame->width, frame->height} == converter->from() &&
         Image::fromPlanes(yuvPictureOf(frame).value_or(YUVPicture{})) != nullptr;
}

/// The stream that the pictures are of; null where it is not known.
const AVStream* LMFFEffectVideoStream::State::stream() const {
  const auto source = media.get();
  const auto pictures = source ? source->videoStream() : nullptr;
  return pictures ? pictures->stream() : nullptr;
}

/// True when the converter is for another kind of pixels than the media's pictures turned out to
/// have, or does nothing since the container did not tell enough of them.
bool LMFFEffectVideoStream::State::isOutdated() const {
  const auto source = media.get();
  if (!source || !converter) return false;
  const LMFFVideoFormat actual = source->videoFormat();
  const LMFFVideoFormat& from = converter->from();
  const bool hasSize = actual.width == from.width && actual.height == from.height;
  return actual != from && (!converter->isUsable() || hasSize);
}

void LMFFEffectVideoStream::State::convertPending() {
  if (const auto frame = std::exchange(pending, nullptr)) convert(frame);
}

void LMFFEffectVideoStream::writeFrame(const AVFrame* frame) { writeFrame(frame, {}); }

void LMFFEffectVideoStream::writeFrame(const AVFrame* frame, const DataProvider& dataProvider) {
  State& state = *state_;
  if (state.isOutdated()) updateConverter();
  std::shared_ptr<AVFrame> input;
  if (frame && frame->data[0] && state.converter && state.converter->isUsable())
    input = FramePtr(av_frame_clone(frame));
  if (input) tagPictureColor(*input);  // what the frame says of its colours is honoured
  free_frame_image_buffer();
  state.light = input ? hdrLightOf(*input, state.stream()) : std::nullopt;
  if (input && !dataProvider && state.canWait(input))
    state.pending = std::move(input);
  else
    state.convert(input);

  const AVFrame* image = state.imageFrame.get();
  const auto size =
      image ? static_cast<int32_t>(int64_t{image->height} * image->linesize[0]) : int32_t{0};
  setDataBuffer(size > 0 && dataProvider ? dataProvider(size) : nullptr);
  const auto buffer = dataBuffer();
  if (buffer && size > 0)
    std::memcpy(buffer->data(), image->data[0], std::min<size_t>(buffer->size(), size));
}

std::shared_ptr<const BitmapImage> LMFFEffectVideoStream::imageForFrame(
    const AVFrame* frame) const {
  if (!frame || !frame->data[0]) return nullptr;
  return BitmapImage::borrowing(frame->data[0], frame->width, frame->height, frame->linesize[0]);
}

std::shared_ptr<const BitmapImage> LMFFEffectVideoStream::currentImage() const {
  state_->convertPending();
  const AVFrame* image = state_->imageFrame.get();
  const auto buffer = dataBuffer();
  if (!image || !buffer) return imageForFrame(image);
  if (buffer->size() < static_cast<size_t>(image->height) * image->linesize[0]) return nullptr;
  return BitmapImage::borrowing(buffer->data(), image->width, image->height, image->linesize[0]);
}

std::shared_ptr<const Image> LMFFEffectVideoStream::currentCIImage() const {
  const State& state = *state_;
  const auto buffer = dataBuffer();
  if (state.pending && !buffer)
    return Image::fromPlanes(yuvPictureOf(state.pending).value_or(YUVPicture{}));
  const auto image = currentImage();
  if (!image) return nullptr;
  // Unlike the bitmap, the recipe keeps its pixels.
  const std::shared_ptr<const void> owner =
      buffer ? std::shared_ptr<const void>(buffer) : state.imageFrame;
  return Image::fromBitmap(
      BitmapImage::sharing(std::shared_ptr<const uint8_t[]>(owner, image->pixels()), image->width(),
                           image->height(), image->bytesPerRow()),
      state.isOpaque && !buffer ? Image::Alpha::kOpaque : Image::Alpha::kStraight);
}

LMFFVideoFormat LMFFEffectVideoStream::outputDataFormat() const {
  const auto input = media();
  const LMFFVideoFormat size = input ? input->videoFormat() : LMFFVideoFormat{};
  return {outputFormat().pix_fmt, size.width, size.height};
}

Size LMFFEffectVideoStream::videoSize() const {
  const auto input = media();
  const LMFFVideoFormat size = input ? input->videoFormat() : LMFFVideoFormat{};
  return {static_cast<double>(size.width), static_cast<double>(size.height)};
}

Size LMFFEffectVideoStream::displayVideoSize() const {
  Size size = videoSize();
  if (const double aspect = displayAspect(); aspect > 0)
    size.width = size.height * aspect;
  else if (aspectType() == kSixteenByNine)
    size.width = size.height / 9.0 * 16.0;
  else if (aspectType() == kFourByThree)
    size.width = size.height / 3.0 * 4.0;
  return integral(Rect{{0, 0}, size}).size;
}

}  // namespace kestrel
