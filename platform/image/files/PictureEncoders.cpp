#include "platform/image/files/PictureEncoders.h"

#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/YUVPicture.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "platform/codec/Codec.h"
#include "platform/codec/MemoryOutput.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

constexpr int kBytesPerPixel = 4;

bool isOpaque(const BitmapImage& image) {
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* pixel = image.row(y);
    uint8_t all = 255;
    for (int x = 0; x < image.width(); ++x) all &= pixel[kBytesPerPixel * x + 3];
    if (all != 255) return false;
  }
  return true;
}

/// A frame with memory for a picture; null where there is not enough.
FramePtr makeFrame(const BitmapImage& image, AVPixelFormat format) {
  FramePtr frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->format = format;
  frame->width = image.width();
  frame->height = image.height();
  frame->sample_aspect_ratio = {1, 1};
  frame->color_range = AVCOL_RANGE_JPEG;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  return frame;
}

/// The pixels as they are, without the alpha of an opaque picture.
FramePtr exactFrame(const BitmapImage& image) {
  const bool hasAlpha = !isOpaque(image);
  auto frame = makeFrame(image, hasAlpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24);
  if (!frame) return nullptr;
  const auto width = static_cast<size_t>(image.width());
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* from = image.row(y);
    uint8_t* to = frame->data[0] + static_cast<ptrdiff_t>(y) * frame->linesize[0];
    if (hasAlpha) {
      std::memcpy(to, from, width * kBytesPerPixel);
      continue;
    }
    for (size_t x = 0; x < width; ++x, from += kBytesPerPixel, to += 3) {
      to[0] = from[0];
      to[1] = from[1];
      to[2] = from[2];
    }
  }
  return frame;
}

/// The picture over black, in planes as JPEG and AVIF files hold them.
FramePtr photoFrame(const BitmapImage& image) {
  auto frame = makeFrame(image, AV_PIX_FMT_YUV444P);
  const auto borrowed =
      BitmapImage::borrowing(image.pixels(), image.width(), image.height(), image.bytesPerRow());
  const auto recipe = Image::fromBitmap(borrowed);
  if (!frame || !recipe) return nullptr;
  frame->colorspace = AVCOL_SPC_BT470BG;
  YUVTarget target;
  target.format = {.width = image.width(),
                   .height = image.height(),
                   .chromaShiftX = 0,
                   .chromaShiftY = 0,
                   .kr = 0.299,
                   .kb = 0.114,
                   .fullRange = true};
  for (size_t i = 0; i < target.planes.size(); ++i)
    target.planes[i] = {frame->data[i], frame->linesize[i]};
  if (!ImageContext().render(recipe, recipe->extent(), target)) return nullptr;
  return frame;
}

/// The step of the encoder's tables, an eighth of which multiplies MPEG's default matrix, that
/// stands for a quality as JPEG programs count it: a percentage of the usual tables, which are
/// about twice as coarse.
int quantizerOf(int quality) {
  const double clamped = std::clamp(quality, 1, 100);
  const double percent = clamped < 50 ? 5000 / clamped : 200 - 2 * clamped;
  return std::clamp(static_cast<int>(std::lround(percent / 6.25)), 1, 31);
}

CodecContextPtr makeEncoder(const AVCodec* encoder, const AVFrame& frame) {
  CodecContextPtr context(encoder ? avcodec_alloc_context3(encoder) : nullptr);
  if (!context) return nullptr;
  context->pix_fmt = static_cast<AVPixelFormat>(frame.format);
  context->width = frame.width;
  context->height = frame.height;
  context->color_range = frame.color_range;
  context->colorspace = frame.colorspace;
  context->color_primaries = frame.color_primaries;
  context->color_trc = frame.color_trc;
  context->sample_aspect_ratio = frame.sample_aspect_ratio;
  context->time_base = {1, 1};
  context->flags |= AV_CODEC_FLAG_BITEXACT;  // no note of the encoder's version in the file
  context->thread_count = 1;
  return context;
}

std::optional<std::vector<uint8_t>> encode(AVCodecContext& context, const AVFrame& frame) {
  std::vector<uint8_t> bytes;
  const auto append = [&bytes](const PacketPtr& packet) {
    bytes.insert(bytes.end(), packet->data, packet->data + packet->size);
  };
  if (openCodec(context, context.codec) < 0) return std::nullopt;
  if (encodeFrame(context, &frame, append) < 0 || encodeFrame(context, nullptr, append) < 0)
    return std::nullopt;
  return bytes.empty() ? std::nullopt : std::optional(std::move(bytes));
}

/// The pixels as WebP's encoder takes them.
FramePtr webPFrame(const BitmapImage& image) {
  auto frame = makeFrame(image, AV_PIX_FMT_RGB32);
  if (!frame) return nullptr;
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* from = image.row(y);
    auto* to = reinterpret_cast<uint32_t*>(frame->data[0] +
                                           static_cast<ptrdiff_t>(y) * frame->linesize[0]);
    for (int x = 0; x < image.width(); ++x, from += kBytesPerPixel)
      to[x] = uint32_t{from[3]} << 24 | uint32_t{from[0]} << 16 | uint32_t{from[1]} << 8 | from[2];
  }
  return frame;
}

const AVCodec* webPEncoder() { return avcodec_find_encoder_by_name("libwebp"); }

/// The one that has a mode for single pictures.
const AVCodec* avifEncoder() { return avcodec_find_encoder_by_name("libaom-av1"); }

const AVOutputFormat* avifContainer() { return av_guess_format("avif", nullptr, nullptr); }

MemoryOutputPtr makeContainer(const AVOutputFormat* format, const AVCodecContext& encoder) {
  AVFormatContext* made = nullptr;
  if (avformat_alloc_output_context2(&made, format, nullptr, nullptr) < 0) return nullptr;
  MemoryOutputPtr container(made);
  container->flags |= AVFMT_FLAG_BITEXACT;
  AVStream* stream = avformat_new_stream(made, nullptr);
  if (!stream || avcodec_parameters_from_context(stream->codecpar, &encoder) < 0) return nullptr;
  stream->time_base = encoder.time_base;
  if (avio_open_dyn_buf(&made->pb) < 0) return nullptr;
  return container;
}

/// The one packet of a picture as a file.
std::optional<std::vector<uint8_t>> muxed(const AVOutputFormat* format,
                                          const AVCodecContext& encoder, AVPacket* packet) {
  const auto container = makeContainer(format, encoder);
  if (!container || !packet) return std::nullopt;
  packet->stream_index = 0;
  if (avformat_write_header(container.get(), nullptr) < 0 ||
      av_write_frame(container.get(), packet) < 0 || av_write_trailer(container.get()) < 0)
    return std::nullopt;
  uint8_t* memory = nullptr;
  const int size = avio_close_dyn_buf(container->pb, &memory);
  container->pb = nullptr;
  std::vector<uint8_t> bytes(memory, memory + std::max(size, 0));
  av_free(memory);
  return bytes;
}

}  // namespace

std::optional<std::vector<uint8_t>> encodePNG(const BitmapImage& image) {
  const auto frame = exactFrame(image);
  const auto context = frame ? makeEncoder(avcodec_find_encoder(AV_CODEC_ID_PNG), *frame) : nullptr;
  if (!context) return std::nullopt;
  // Rows told by how they differ from the one above shrink faster than plain ones, and to less;
  // harder work would take twice the time for a tenth of the size.
  context->compression_level = 3;
  av_opt_set(context->priv_data, "pred", "up", 0);
  return encode(*context, *frame);
}

std::optional<std::vector<uint8_t>> encodeJPEG(const BitmapImage& image, int quality) {
  const auto frame = photoFrame(image);
  const auto context =
      frame ? makeEncoder(avcodec_find_encoder(AV_CODEC_ID_MJPEG), *frame) : nullptr;
  if (!context) return std::nullopt;
  context->flags |= AV_CODEC_FLAG_QSCALE;
  context->qmin = 1;
  context->global_quality = FF_QP2LAMBDA * quantizerOf(quality);
  frame->quality = context->global_quality;
  return encode(*context, *frame);
}

bool canEncodeWebP() { return webPEncoder() != nullptr; }

std::optional<std::vector<uint8_t>> encodeWebP(const BitmapImage& image, int quality) {
  const auto frame = webPFrame(image);
  const auto context = frame ? makeEncoder(webPEncoder(), *frame) : nullptr;
  if (!context) return std::nullopt;
  av_opt_set_double(context->priv_data, "quality", quality, 0);
  return encode(*context, *frame);
}

bool canEncodeAVIF() { return avifEncoder() && avifContainer(); }

std::optional<std::vector<uint8_t>> encodeAVIF(const BitmapImage& image, int quality) {
  const auto frame = canEncodeAVIF() ? photoFrame(image) : nullptr;
  if (!frame) return std::nullopt;
  // sRGB, in the matrix of JPEG.
  frame->color_primaries = AVCOL_PRI_BT709;
  frame->color_trc = AVCOL_TRC_IEC61966_2_1;
  const auto context = makeEncoder(avifEncoder(), *frame);
  if (!context) return std::nullopt;
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  context->bit_rate = 0;
  av_opt_set_int(context->priv_data, "still-picture", 1, 0);
  av_opt_set(context->priv_data, "usage", "allintra", 0);
  av_opt_set_int(context->priv_data, "crf", std::lround(63 * (100 - quality) / 100.0), 0);
  // Harder work takes twice the time and more for a few hundredths of the size.
  av_opt_set_int(context->priv_data, "cpu-used", 6, 0);
  PacketPtr packet;
  const auto keep = [&packet](PacketPtr next) { packet = std::move(next); };
  if (openCodec(*context, context->codec) < 0 || encodeFrame(*context, frame.get(), keep) < 0 ||
      encodeFrame(*context, nullptr, keep) < 0)
    return std::nullopt;
  return muxed(avifContainer(), *context, packet.get());
}

}  // namespace kestrel
