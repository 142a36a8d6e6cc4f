#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFImageColorspaceConverter.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <utility>

#include "frames/DrawingSurface.h"
#include "frames/DrawnFormat.h"
#include "frames/PicturePool.h"
#include "frames/PictureScaler.h"
#include "support/FFmpegOwners.h"
#include "support/FramePlanes.h"
#include "support/Guarded.h"
#include "support/PictureColor.h"

namespace kestrel {

namespace {

constexpr int kRowAlignment = 16;
constexpr int kBytesPerContextPixel = 4;

int matrixOf(const AVFrame& frame) {
  return pictureMatrix(frame.colorspace, frame.format, frame.height);
}

int rangeOf(const AVFrame& frame) { return pictureRange(frame.color_range, frame.format); }

/// Labels `target`, which has its format and size, with the colours that `source` is to have there.
void tagColor(AVFrame& target, const AVFrame& source, const LMFFVideoColor& wanted) {
  const bool fromRgb = matrixOf(source) == AVCOL_SPC_RGB;
  int matrix = fromRgb ? AVCOL_SPC_UNSPECIFIED : matrixOf(source);
  int range = fromRgb ? AVCOL_RANGE_UNSPECIFIED : rangeOf(source);
  if (wanted.matrix != AVCOL_SPC_UNSPECIFIED) matrix = wanted.matrix;
  if (wanted.range != AVCOL_RANGE_UNSPECIFIED) range = wanted.range;
  target.colorspace =
      static_cast<AVColorSpace>(pictureMatrix(matrix, target.format, target.height));
  target.color_range = static_cast<AVColorRange>(pictureRange(range, target.format));
  target.color_primaries = wanted.primaries != AVCOL_PRI_UNSPECIFIED
                               ? static_cast<AVColorPrimaries>(wanted.primaries)
                               : source.color_primaries;
  target.color_trc = wanted.transfer != AVCOL_TRC_UNSPECIFIED
                         ? static_cast<AVColorTransferCharacteristic>(wanted.transfer)
                         : source.color_trc;
}

bool hasAlignedRows(const AVFrame& frame) {
  return std::all_of(std::begin(frame.linesize), std::end(frame.linesize),
                     [](int size) { return size >= 0 && size % kRowAlignment == 0; });
}

/// True when the pixels of `source` are those that `target`, which has all but them, should show.
bool isSamePicture(const AVFrame& source, const AVFrame& target) {
  return source.width == target.width && source.height == target.height &&
         PictureScaler::plainFormat(source.format) == PictureScaler::plainFormat(target.format) &&
         PictureScaler::isSameMatrix(matrixOf(source), matrixOf(target)) &&
         rangeOf(source) == rangeOf(target);
}

/// Makes `target` show the pixels of `source` without copying them. Nothing else goes along: what
/// the decoder says of the picture's type would tell the encoder which one to use. On failure
/// `target` is blank.
bool referTo(const AVFrame& source, AVFrame& target) {
  for (size_t i = 0; i < std::size(source.buf) && source.buf[i]; i++) {
    target.buf[i] = av_buffer_ref(source.buf[i]);
    if (!target.buf[i]) {
      av_frame_unref(&target);
      return false;
    }
  }
  std::copy(std::begin(source.data), std::end(source.data), target.data);
  std::copy(std::begin(source.linesize), std::end(source.linesize), target.linesize);
  target.chroma_location = source.chroma_location;
  return true;
}

Rect wholeOf(const BitmapContext& context) {
  return {{0, 0}, {static_cast<double>(context.width()), static_cast<double>(context.height())}};
}

void fillBlack(AVFrame& frame) {
  std::array<ptrdiff_t, 4> rows{};
  std::copy_n(std::begin(frame.linesize), rows.size(), rows.begin());
  av_image_fill_black(frame.data, rows.data(), static_cast<AVPixelFormat>(frame.format),
                      frame.color_range, frame.width, frame.height);
}

/// The picture of a frame that the caller keeps alive, where it is opaque and in colours.
std::optional<YUVPicture> coloursOf(const AVFrame& frame) {
  auto picture = yuvPictureOf(std::shared_ptr<const AVFrame>(std::shared_ptr<void>(), &frame));
  if (!picture || !picture->planes[1].data || !picture->planes[2].data || picture->planes[3].data)
    return std::nullopt;
  return picture;
}

/// True when no sample of the one need change to be one of the other.
bool meansTheSame(const YUVFormat& a, const YUVFormat& b) {
  return a.matrix == b.matrix && a.kr == b.kr && a.kb == b.kb && a.bitDepth == b.bitDepth &&
         a.fullRange == b.fullRange;
}

}  // namespace

struct LMFFImageColorspaceConverter::State {
  Guarded<LMFFVideoFormat> format{LMFFVideoFormat{AV_PIX_FMT_RGBA, 0, 0}};
  Guarded<LMFFVideoColor> color;
  FramePtr output = makeFrame();
  DrawingSurface surface;

  PicturePool pool;
  PicturePool drawnPool;  ///< of pictures that are drawn in another form
  PictureScaler scaler;
  std::optional<Scaler> how;  ///< of pictures of another size
  AVChromaLocation drawnChroma = AVCHROMA_LOC_UNSPECIFIED;
  bool drawsByFields = false;
  ImageContext renderer;
  FramePtr next = makeFrame();   ///< the picture in the making
  FramePtr bytes = makeFrame();  ///< shows the pixels of a buffer as a frame

  bool isEmpty() const { return !output->data[0]; }
  bool prepare(const AVFrame& source);
  void convert(const AVFrame& source);
  bool convert(const Image& image);
  bool drawAs(int form, const Image& image);
  bool show(const AVFrame& source);
  bool scalePlanes(const AVFrame& source);
  void publish();
};

/// Makes `next` what a picture of `source` is to be, but for its pixels; false when there is no
/// size to convert to. The output keeps the size and format that it was first given pixels with.
bool LMFFImageColorspaceConverter::State::prepare(const AVFrame& source) {
  LMFFVideoFormat wanted{output->format, output->width, output->height};
  if (isEmpty()) wanted = format.get();
  if (wanted.width <= 0 || wanted.height <= 0) return false;
  av_frame_unref(next.get());
  next->format = wanted.pix_fmt;
  next->width = wanted.width;
  next->height = wanted.height;
  tagColor(*next, source, color.get());
  return true;
}

void LMFFImageColorspaceConverter::State::convert(const AVFrame& source) {
  if (&source == output.get() || !prepare(source)) return;
  if (show(source)) {
    publish();
  } else if (isEmpty() && (next->data[0] || pool.allocate(*next))) {
    // A first picture that can't be converted leaves an output all the same.
    fillBlack(*next);
    publish();
  }
}

/// Draws an image, which counts as RGB, right into the output's planes, or into others of the same
/// depth; false when there are none, or the output is not of the size that is wanted now.
bool LMFFImageColorspaceConverter::State::convert(const Image& image) {
  const FramePtr rgb = makeFrame();
  rgb->format = AV_PIX_FMT_RGBA;
  const LMFFVideoFormat now = format.get();
  if (!prepare(*rgb) || next->width != now.width || next->height != now.height) return false;
  const int form = drawnFormat(next->format);
  if (form == AV_PIX_FMT_NONE || !pool.allocate(*next)) return false;
  next->chroma_location = drawnChroma;
  if (form != next->format ? !drawAs(form, image) : !surface.drawInto(*next, image, drawsByFields))
    return false;
  publish();
  return true;
}

/// Draws an image in planes of another form and brings them to that of `next`.
bool LMFFImageColorspaceConverter::State::drawAs(int form, const Image& image) {
  const FramePtr drawn = makeFrame();
  if (av_frame_copy_props(drawn.get(), next.get()) < 0) return false;
  drawn->format = form;
  drawn->width = next->width;
  drawn->height = next->height;
  return drawnPool.allocate(*drawn) && surface.drawInto(*drawn, image, drawsByFields) &&
         scaler.scale(*drawn, *next);
}

/// Gives `next` the pixels of `source`.
bool LMFFImageColorspaceConverter::State::show(const AVFrame& source) {
  const auto sourceFormat = static_cast<AVPixelFormat>(source.format);
  if (!source.data[0] || source.width <= 0 || source.height <= 0 ||
      !sws_isSupportedInput(sourceFormat)) {
    return false;
  }
  if (source.buf[0] && hasAlignedRows(source) && isSamePicture(source, *next)) {
    return referTo(source, *next);
  }
  if (!pool.allocate(*next)) return false;
  return (how && scalePlanes(source)) || scaler.scale(source, *next, how);
}

/// Scales the planes of `source` each by itself; false where that is not all there is to do.
bool LMFFImageColorspaceConverter::State::scalePlanes(const AVFrame& source) {
  next->chroma_location = source.chroma_location;
  const auto from = coloursOf(source);
  const auto to = yuvTargetOf(*next);
  if (!from || !to || !meansTheSame(from->format, to->format)) return false;
  const Rect bounds{{0, 0}, {1.0 * next->width, 1.0 * next->height}};
  const auto image = Image::fromPlanes(*from)->resampledBy(*how)->scaled(
      1.0 * next->width / source.width, 1.0 * next->height / source.height);
  return renderer.render(image, bounds, *to);
}

void LMFFImageColorspaceConverter::State::publish() {
  av_frame_unref(output.get());
  av_frame_move_ref(output.get(), next.get());
}

LMFFImageColorspaceConverter::LMFFImageColorspaceConverter() : state_(std::make_unique<State>()) {}

LMFFImageColorspaceConverter::~LMFFImageColorspaceConverter() = default;

LMFFVideoFormat LMFFImageColorspaceConverter::outputFormat() const { return state_->format.get(); }

void LMFFImageColorspaceConverter::setOutputFormat(const LMFFVideoFormat& format) {
  state_->format.set(format);
}

LMFFVideoColor LMFFImageColorspaceConverter::outputColor() const { return state_->color.get(); }

void LMFFImageColorspaceConverter::setOutputColor(const LMFFVideoColor& color) {
  state_->color.set(color);
}

std::optional<Scaler> LMFFImageColorspaceConverter::scaler() const { return state_->how; }

void LMFFImageColorspaceConverter::setScaler(const std::optional<Scaler>& scaler) {
  state_->how = scaler;
}

void LMFFImageColorspaceConverter::setChromaPlace(int32_t location, bool byFields) {
  state_->drawnChroma = static_cast<AVChromaLocation>(location);
  state_->drawsByFields = byFields;
}

AVFrame* LMFFImageColorspaceConverter::outputFrame() const { return state_->output.get(); }

bool LMFFImageColorspaceConverter::isOutputEmpty() const { return state_->isEmpty(); }

void LMFFImageColorspaceConverter::convertFrame(const AVFrame* frame) {
  if (frame) state_->convert(*frame);
}

void LMFFImageColorspaceConverter::convertBytes(const void* bytes, int32_t format) {
  const LMFFVideoFormat size = outputFormat();
  AVFrame& frame = *state_->bytes;
  av_frame_unref(&frame);
  frame.format = format;
  frame.width = size.width;
  frame.height = size.height;
  const auto pixelFormat = static_cast<AVPixelFormat>(format);
  auto* pixels = static_cast<uint8_t*>(const_cast<void*>(bytes));
  if (av_image_fill_linesizes(frame.linesize, pixelFormat, size.width) >= 0) {
    av_image_fill_pointers(frame.data, pixelFormat, size.height, pixels, frame.linesize);
  }
  convertFrame(&frame);
}

void LMFFImageColorspaceConverter::convertContext(const BitmapContext* context) {
  if (!context || !context->data()) return;
  const LMFFVideoFormat size = outputFormat();
  const bool hasRightWidth = state_->surface.width() == size.width;
  const bool hasRightHeight = state_->surface.height() == size.height;
  if (context->bitsPerPixel() != 32 && !hasRightWidth && !hasRightHeight) return;
  const int64_t needed = int64_t{size.width} * size.height * kBytesPerContextPixel;
  if (int64_t{context->bytesPerRow()} * context->height() < needed) return;
  convertBytes(context->data(), AV_PIX_FMT_RGBA);
}

std::unique_ptr<BitmapContext> LMFFImageColorspaceConverter::createCGContext() const {
  const LMFFVideoFormat size = outputFormat();
  auto context = std::make_unique<BitmapContext>(size.width, size.height);
  return context->data() ? std::move(context) : nullptr;
}

void LMFFImageColorspaceConverter::createContext() {
  const LMFFVideoFormat size = outputFormat();
  state_->surface.create(size.width, size.height);
}

BitmapContext* LMFFImageColorspaceConverter::cgcontext() const { return state_->surface.share(); }

// Images.

void LMFFImageColorspaceConverter::drawImage(const std::shared_ptr<const BitmapImage>& image,
                                             BitmapContext* context) const {
  if (image && context) {
    context->drawImage(*image, wholeOf(*context), BitmapContext::Blend::kCopy);
  }
}

void LMFFImageColorspaceConverter::drawImage(const std::shared_ptr<const Image>& image,
                                             BitmapContext* context) const {
  if (image && context) state_->surface.draw(*image, *context);
}

void LMFFImageColorspaceConverter::convertImage(const std::shared_ptr<const BitmapImage>& image) {
  createContext();
  BitmapContext* context = state_->surface.context();
  drawImage(image, context);
  convertContext(context);
}

void LMFFImageColorspaceConverter::convertImage(const std::shared_ptr<const Image>& image) {
  createContext();
  if (image && state_->convert(*image)) return;
  BitmapContext* context = state_->surface.context();
  drawImage(image, context);
  convertContext(context);
}

void LMFFImageColorspaceConverter::convertBitmapImage(
    const std::shared_ptr<const BitmapImage>& image) {
  createContext();
  BitmapContext* context = state_->surface.context();
  if (image && context) context->drawImage(*image, wholeOf(*context));
  convertContext(context);
}

std::shared_ptr<const BitmapImage> LMFFImageColorspaceConverter::outputImage() const {
  const AVFrame& output = *state_->output;
  return BitmapImage::borrowing(output.data[0], output.width, output.height, output.linesize[0]);
}

}  // namespace kestrel
