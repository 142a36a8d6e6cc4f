#pragma once

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "tests/frames/Pictures.h"
#include "tests/media/PictureMedia.h"

namespace kestrel::test {

/// Red, green, blue and alpha, 0 to 255.
using Rgba = std::array<int, 4>;

inline constexpr Rgba kRed{255, 0, 0, 255};
inline constexpr Rgba kGreen{0, 255, 0, 255};
inline constexpr Rgba kBlue{0, 0, 255, 255};
inline constexpr Rgba kWhite{255, 255, 255, 255};
inline constexpr Rgba kBlack{0, 0, 0, 255};

inline Rgba rgbaAt(const BitmapImage& image, int x, int y) {
  const uint8_t* pixel = image.row(y) + x * 4;
  return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

inline std::vector<uint8_t> bytesOf(const BitmapImage& image) {
  std::vector<uint8_t> bytes;
  for (int y = 0; y < image.height(); ++y)
    bytes.insert(bytes.end(), image.row(y), image.row(y) + image.width() * 4);
  return bytes;
}

/// The pixels of a recipe in a rectangle.
inline std::shared_ptr<const BitmapImage> rendered(const std::shared_ptr<const Image>& image,
                                                   const Rect& rect) {
  static const ImageContext context;
  return context.bitmapImage(image, rect);
}

/// The pixels of a recipe's extent.
inline std::shared_ptr<const BitmapImage> rendered(const std::shared_ptr<const Image>& image) {
  return image ? rendered(image, image->extent()) : nullptr;
}

/// An RGBA frame of what `color` answers for each pixel, (0, 0) at the upper left.
inline FramePtr rgbaFrame(int width, int height, const std::function<Rgba(int x, int y)>& color) {
  FramePtr frame = makePicture(AV_PIX_FMT_RGBA, width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Rgba value = color(x, y);
      std::copy(value.begin(), value.end(), frame->data[0] + y * frame->linesize[0] + x * 4);
    }
  }
  return frame;
}

inline FramePtr rgbaFrame(int width, int height, const Rgba& color) {
  return rgbaFrame(width, height, [&](int, int) { return color; });
}

/// Colours without any order, always the same ones.
inline Rgba noise(int x, int y) {
  const uint32_t seed =
      (static_cast<uint32_t>(x) * 73856093U) ^ (static_cast<uint32_t>(y) * 19349663U);
  const uint32_t mixed = (seed ^ seed >> 13) * 2654435761U;
  return {static_cast<int>(mixed >> 24), static_cast<int>(mixed >> 16 & 0xFF),
          static_cast<int>(mixed >> 8 & 0xFF), 255};
}

/// A picture without edges: each colour a gentle slope of its own.
inline Rgba slopes(int x, int y, int width, int height) {
  return {80 + 80 * x / width, 90 + 60 * y / height, 100 + 40 * x / width + 20 * y / height, 255};
}

/// An effect stream over a media of one size and format, set up as a movie does: the output is the
/// whole frame in its own size.
class EffectStream {
 public:
  EffectStream(int width, int height, AVPixelFormat format = AV_PIX_FMT_RGBA)
      : media_(width, height, format) {
    stream_.setMedia(media_.get());
    setOutputSize(width, height);
    stream_.setCropRect({{0, 0}, {static_cast<double>(width), static_cast<double>(height)}});
    stream_.updateConverter();
  }

  void setOutputSize(int width, int height) {
    stream_.setOutputFormat({AV_PIX_FMT_RGBA, width, height});
  }

  LMFFEffectVideoStream* operator->() { return &stream_; }
  LMFFEffectVideoStream& operator*() { return stream_; }

  /// The finished picture.
  std::shared_ptr<const BitmapImage> picture() const {
    return rendered(stream_.currentEffectImage());
  }

 private:
  PictureMedia media_;
  LMFFEffectVideoStream stream_;
};

/// A picture of one colour, to lay over others, with its lower-left corner at (x, y).
inline std::shared_ptr<const Image> patch(double x, double y, double width, double height,
                                          const Color& color) {
  return Image::fromColor(color)->cropped({{x, y}, {width, height}});
}

inline constexpr Color kRedColor{1, 0, 0, 1};

}  // namespace kestrel::test
