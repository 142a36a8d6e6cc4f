#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

#include "effects/EffectVideoStreamState.h"
#include "support/FramePlanes.h"
#include "support/PictureColor.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int64_t kFourByThree = 1;
constexpr int64_t kSixteenByNine = 2;

/// Puts a filter after `last`, where there is one, and becomes the last; false when that is not
/// possible.
bool append(AVFilterGraph* graph, const char* filter, const char* name,
            const std::string& arguments, AVFilterContext*& last) {
  AVFilterContext* before = std::exchange(last, nullptr);
  return avfilter_graph_create_filter(&last, avfilter_get_by_name(filter), name, arguments.c_str(),
                                      nullptr, graph) >= 0 &&
         (!before || avfilter_link(before, 0, last, 0) >= 0);
}

/// Makes source and sink with the conversion between them; false when that is not possible.
bool configure(AVFilterGraph* graph, const LMFFVideoFormat& from, int pixelFormat,
               AVFilterContext** source, AVFilterContext** sink) {
  const char* formatName = av_get_pix_fmt_name(static_cast<AVPixelFormat>(pixelFormat));
  if (!graph || !formatName) return false;
  // The graph carries no timing and no aspect: the stream's settings see to the shape.
  const std::string arguments =
      fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25:pixel_aspect=0/1", from.width,
                  from.height, from.pix_fmt);
  // The library's fast ways to RGB are off by several steps.
  graph->scale_sws_opts = av_strdup("flags=bilinear+accurate_rnd+full_chroma_int");
  AVFilterContext* last = nullptr;
  if (!append(graph, "buffer", "buffersrc", arguments, last)) return false;
  *source = last;
  // On the straight way from grey to RGB the range of the frame would not count.
  if (from.pix_fmt == AV_PIX_FMT_GRAY8 &&
      !append(graph, "format", "grey", "pix_fmts=yuv444p", last))
    return false;
  if (!append(graph, "format", "format", fmt::format("pix_fmts={}", formatName), last) ||
      !append(graph, "buffersink", "buffersink", "", last))
    return false;
  *sink = last;
  return avfilter_graph_config(graph, nullptr) >= 0;
}

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
  state_->convertPending();  // the graph's last service to the picture that there is
  state_->buffersrc = nullptr;
  state_->buffersink = nullptr;
  state_->graph.reset();
}

void LMFFEffectVideoStream::free_frame_image_buffer() {
  state_->imageFrame.reset();
  state_->pending.reset();
}

void LMFFEffectVideoStream::updateConverter() {
  free_graph();
  State& state = *state_;
  state.graph.reset(avfilter_graph_alloc());
  const auto input = media();
  const int pixelFormat = outputFormat().pix_fmt;
  state.converted = input ? input->videoFormat() : LMFFVideoFormat{};
  state.isToRgba = pixelFormat == AV_PIX_FMT_RGBA;
  if (!configure(state.graph.get(), *state.converted, pixelFormat, &state.buffersrc,
                 &state.buffersink))
    free_graph();
}

/// A frame that is refused shows as an empty picture.
void LMFFEffectVideoStream::State::convert(const AVFrame* frame) {
  if (frame && buffersrc) {
    isOpaque = !hasAlpha(frame->format);
    std::ignore = av_buffersrc_write_frame(buffersrc, frame);
  }
  imageFrame = std::shared_ptr<AVFrame>(makeFrame());
  if (!buffersink || !imageFrame || av_buffersink_get_frame(buffersink, imageFrame.get()) < 0)
    imageFrame.reset();
}

/// True when the image engine can do without the converter, which would not change more than the
/// form of the pixels.
bool LMFFEffectVideoStream::State::canWait(const std::shared_ptr<const AVFrame>& frame) const {
  return isToRgba && LMFFVideoFormat{frame->format, frame->width, frame->height} == converted &&
         Image::fromPlanes(yuvPictureOf(frame).value_or(YUVPicture{})) != nullptr;
}

/// True when the converter was set up for another kind of pixels than the media's pictures turned
/// out to have, or could not be set up since the container did not tell enough of them.
bool LMFFEffectVideoStream::State::isOutdated() const {
  const auto source = media.get();
  if (!source || !converted) return false;
  const LMFFVideoFormat actual = source->videoFormat();
  const bool hasSize = actual.width == converted->width && actual.height == converted->height;
  return actual != *converted && (!graph || hasSize);
}

void LMFFEffectVideoStream::State::convertPending() {
  if (const auto frame = std::exchange(pending, nullptr)) convert(frame.get());
}

void LMFFEffectVideoStream::writeFrame(const AVFrame* frame) { writeFrame(frame, {}); }

void LMFFEffectVideoStream::writeFrame(const AVFrame* frame, const DataProvider& dataProvider) {
  State& state = *state_;
  if (state.isOutdated()) updateConverter();
  std::shared_ptr<AVFrame> input;
  if (frame && frame->data[0] && state.buffersrc) input = FramePtr(av_frame_clone(frame));
  if (input) tagPictureColor(*input);  // what the frame says of its colours is honoured
  free_frame_image_buffer();
  if (input && !dataProvider && state.canWait(input))
    state.pending = std::move(input);
  else
    state.convert(input.get());

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
