#include <kestrel/BitmapFile.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/YUVPicture.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

#include "platform/codec/Codec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace kestrel {

namespace {

constexpr int64_t kMostPixels = int64_t{1} << 26;
constexpr int kLongestSide = 32768;
constexpr size_t kMostBytes = size_t{1} << 29;
constexpr int kBytesPerPixel = 4;

// Writing.

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

/// The picture over black, in planes as JPEG files hold them.
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

CodecContextPtr makeEncoder(AVCodecID codec, const AVFrame& frame) {
  const AVCodec* encoder = avcodec_find_encoder(codec);
  CodecContextPtr context(encoder ? avcodec_alloc_context3(encoder) : nullptr);
  if (!context) return nullptr;
  context->pix_fmt = static_cast<AVPixelFormat>(frame.format);
  context->width = frame.width;
  context->height = frame.height;
  context->color_range = frame.color_range;
  context->colorspace = frame.colorspace;
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

std::optional<std::vector<uint8_t>> encodePNG(const BitmapImage& image) {
  const auto frame = exactFrame(image);
  const auto context = frame ? makeEncoder(AV_CODEC_ID_PNG, *frame) : nullptr;
  if (!context) return std::nullopt;
  // Rows told by how they differ from the one above shrink faster than plain ones, and to less;
  // harder work would take twice the time for a tenth of the size.
  context->compression_level = 3;
  av_opt_set(context->priv_data, "pred", "up", 0);
  return encode(*context, *frame);
}

std::optional<std::vector<uint8_t>> encodeJPEG(const BitmapImage& image, int quality) {
  const auto frame = photoFrame(image);
  const auto context = frame ? makeEncoder(AV_CODEC_ID_MJPEG, *frame) : nullptr;
  if (!context) return std::nullopt;
  context->flags |= AV_CODEC_FLAG_QSCALE;
  context->qmin = 1;
  context->global_quality = FF_QP2LAMBDA * quantizerOf(quality);
  frame->quality = context->global_quality;
  return encode(*context, *frame);
}

// Reading.

AVCodecID codecOf(std::span<const uint8_t> data) {
  using namespace std::string_view_literals;
  const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  if (text.starts_with("\x89PNG\r\n\x1a\n"sv)) return AV_CODEC_ID_PNG;
  if (text.starts_with("\xFF\xD8\xFF"sv)) return AV_CODEC_ID_MJPEG;
  if (text.starts_with("RIFF"sv) &&
      text.substr(std::min<size_t>(text.size(), 8)).starts_with("WEBP"sv))
    return AV_CODEC_ID_WEBP;
  if (text.starts_with("GIF87a"sv) || text.starts_with("GIF89a"sv)) return AV_CODEC_ID_GIF;
  if (text.starts_with("BM"sv)) return AV_CODEC_ID_BMP;
  if (text.starts_with("II*\0"sv) || text.starts_with("MM\0*"sv)) return AV_CODEC_ID_TIFF;
  return AV_CODEC_ID_NONE;
}

/// The bytes as decoders want them, with room behind.
PacketPtr packetOf(std::span<const uint8_t> data) {
  PacketPtr packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(data.size())) < 0) return nullptr;
  std::memcpy(packet->data, data.data(), data.size());
  packet->flags |= AV_PKT_FLAG_KEY;
  return packet;
}

FramePtr decode(std::span<const uint8_t> data) {
  const AVCodec* decoder = avcodec_find_decoder(codecOf(data));
  if (!decoder || data.size() > kMostBytes) return nullptr;
  const CodecContextPtr context(avcodec_alloc_context3(decoder));
  const auto packet = packetOf(data);
  if (!context || !packet) return nullptr;
  context->max_pixels = kMostPixels;
  context->thread_count = 1;
  // A strict TIFF reader refuses every tag that it does not know.
  if (decoder->id != AV_CODEC_ID_TIFF) context->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK;
  if (openCodec(*context, decoder) < 0) return nullptr;
  FramePtr frame;
  const auto takeFirst = [&frame](FramePtr next) {
    if (!frame) frame = std::move(next);
  };
  if (decodePacket(*context, packet.get(), takeFirst) > 0) return nullptr;
  decodePacket(*context, nullptr, takeFirst);
  if (!frame) return nullptr;
  const bool isDamaged = (frame->flags & AV_FRAME_FLAG_CORRUPT) || frame->decode_error_flags;
  const bool fits = std::max(frame->width, frame->height) <= kLongestSide;
  return isDamaged || !fits ? nullptr : std::move(frame);
}

std::shared_ptr<const BitmapImage> bitmapOver(std::shared_ptr<uint8_t[]> pixels, int width,
                                              int height) {
  return BitmapImage::sharing(std::move(pixels), width, height, width * kBytesPerPixel);
}

std::shared_ptr<uint8_t[]> makePixels(int width, int height) {
  const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * kBytesPerPixel;
  return std::shared_ptr<uint8_t[]>(new (std::nothrow) uint8_t[bytes]);
}

/// Takes chroma for sited in the middle of the pixels that share it, as picture files have it.
SwsPtr makeConverter(const AVFrame& frame) {
  SwsPtr context(sws_alloc_context());
  if (!context) return nullptr;
  const std::array<std::pair<const char*, int>, 7> options{{
      {"srcw", frame.width},
      {"srch", frame.height},
      {"src_format", frame.format},
      {"dstw", frame.width},
      {"dsth", frame.height},
      {"dst_format", AV_PIX_FMT_RGBA},
      {"sws_flags", SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP},
  }};
  for (const auto& [name, value] : options) av_opt_set_int(context.get(), name, value, 0);
  if (sws_init_context(context.get(), nullptr, nullptr) < 0) return nullptr;
  const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
  const bool isFull = frame.color_range == AVCOL_RANGE_JPEG;
  constexpr int kUnit = 1 << 16;
  sws_setColorspaceDetails(context.get(), matrix, isFull, matrix, 1, 0, kUnit, kUnit);
  return context;
}

std::shared_ptr<const BitmapImage> convert(const AVFrame& frame) {
  const auto converter = makeConverter(frame);
  auto pixels = makePixels(frame.width, frame.height);
  if (!converter || !pixels) return nullptr;
  uint8_t* planes[] = {pixels.get(), nullptr, nullptr, nullptr};
  const int lineSizes[] = {frame.width * kBytesPerPixel, 0, 0, 0};
  if (sws_scale(converter.get(), frame.data, frame.linesize, 0, frame.height, planes, lineSizes) !=
      frame.height)
    return nullptr;
  return bitmapOver(std::move(pixels), frame.width, frame.height);
}

/// Where a pixel of the upright picture comes from: steps along the stored picture's rows and
/// columns.
struct Turn {
  int rightX = 1, rightY = 0;  ///< one pixel to the right
  int downX = 0, downY = 1;    ///< one pixel down
};

/// How the camera was held, as one of the eight turns and mirrorings.
Turn turnOf(const AVFrame& frame) {
  const AVFrameSideData* data = av_frame_get_side_data(&frame, AV_FRAME_DATA_DISPLAYMATRIX);
  std::array<int32_t, 9> matrix{};
  if (!data || data->size < sizeof matrix) return {};
  std::memcpy(matrix.data(), data->data, sizeof matrix);
  const auto sign = [&](size_t i) { return (matrix[i] > 0) - (matrix[i] < 0); };
  // The matrix maps the stored picture to the upright one, whose inverse is its transpose.
  const Turn turn{sign(0), sign(3), sign(1), sign(4)};
  const bool isTurn = turn.rightX * turn.downX + turn.rightY * turn.downY == 0 &&
                      std::abs(turn.rightX) + std::abs(turn.rightY) == 1 &&
                      std::abs(turn.downX) + std::abs(turn.downY) == 1;
  return isTurn ? turn : Turn{};
}

std::shared_ptr<const BitmapImage> turned(const std::shared_ptr<const BitmapImage>& image,
                                          const Turn& turn) {
  const bool isPlain = turn.rightX == 1 && turn.downY == 1;
  if (!image || isPlain) return image;
  const bool swaps = turn.rightX == 0;
  const int width = swaps ? image->height() : image->width();
  const int height = swaps ? image->width() : image->height();
  auto pixels = makePixels(width, height);
  if (!pixels) return nullptr;
  const int left = turn.rightX + turn.downX < 0 ? image->width() - 1 : 0;
  const int top = turn.rightY + turn.downY < 0 ? image->height() - 1 : 0;
  uint8_t* to = pixels.get();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x, to += kBytesPerPixel)
      std::memcpy(to,
                  image->row(top + y * turn.downY + x * turn.rightY) +
                      (left + x * turn.rightX + y * turn.downX) * kBytesPerPixel,
                  kBytesPerPixel);
  return bitmapOver(std::move(pixels), width, height);
}

}  // namespace

std::optional<std::vector<uint8_t>> encodedBitmapImage(const BitmapImage& image,
                                                       PictureFormat format, int quality) {
  return format == PictureFormat::kPNG ? encodePNG(image) : encodeJPEG(image, quality);
}

std::shared_ptr<const BitmapImage> bitmapImageWithData(std::span<const uint8_t> data) {
  const auto frame = decode(data);
  return frame ? turned(convert(*frame), turnOf(*frame)) : nullptr;
}

}  // namespace kestrel
