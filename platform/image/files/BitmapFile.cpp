#include <kestrel/BitmapFile.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "platform/codec/Codec.h"
#include "platform/image/files/PictureEncoders.h"

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

std::optional<int> usualQuality(PictureFormat format) {
  switch (format) {
    case PictureFormat::kPNG:
      break;
    case PictureFormat::kJPEG:
      return 94;
    case PictureFormat::kWebP:
      return 90;
    case PictureFormat::kAVIF:
      return 80;
  }
  return std::nullopt;
}

bool canEncode(PictureFormat format) {
  switch (format) {
    case PictureFormat::kPNG:
    case PictureFormat::kJPEG:
      break;
    case PictureFormat::kWebP:
      return canEncodeWebP();
    case PictureFormat::kAVIF:
      return canEncodeAVIF();
  }
  return true;
}

std::optional<std::vector<uint8_t>> encodedBitmapImage(const BitmapImage& image,
                                                       PictureFormat format,
                                                       std::optional<int> quality) {
  const int clamped = std::clamp(quality.value_or(usualQuality(format).value_or(0)), 0, 100);
  switch (format) {
    case PictureFormat::kPNG:
      return encodePNG(image);
    case PictureFormat::kJPEG:
      return encodeJPEG(image, clamped);
    case PictureFormat::kWebP:
      return encodeWebP(image, clamped);
    case PictureFormat::kAVIF:
      return encodeAVIF(image, clamped);
  }
  return std::nullopt;
}

std::shared_ptr<const BitmapImage> bitmapImageWithData(std::span<const uint8_t> data) {
  const auto frame = decode(data);
  return frame ? turned(convert(*frame), turnOf(*frame)) : nullptr;
}

}  // namespace kestrel
