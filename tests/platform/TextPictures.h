#pragma once

// What the tests of text share: texts in a typeface whose measures are known, and what a picture
// shows.

#include <kestrel/AttributedString.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kestrel::test {

using PicturePtr = std::shared_ptr<const BitmapImage>;

/// Every glyph of DejaVu Sans Mono is 1233 of 2048 units wide: 60 pixels at a size of 100, 6 at 10.
/// Its lines are 1901 + 483 units high, 116.4 pixels at 100.
inline TextAttributes monospaced(double size, TextAlignment alignment = TextAlignment::kLeft) {
  TextAttributes attributes;
  attributes.font.family = "DejaVu Sans Mono";
  attributes.font.size = size;
  attributes.foregroundColor = Color::white();
  attributes.paragraphStyle.alignment = alignment;
  return attributes;
}

inline AttributedString mono(std::string text, double size = 10) {
  return AttributedString(std::move(text), monospaced(size));
}

inline AttributedString systemText(std::string text, double size = 40) {
  TextAttributes attributes;
  attributes.font = Font::systemFontOfSize(size);
  attributes.foregroundColor = Color::white();
  return AttributedString(std::move(text), attributes);
}

/// The text in the room that it needs by itself; null when it needs none.
inline PicturePtr pictureOf(const AttributedString& text, double width = 4000) {
  return text.bitmapImageWithSize(text.boundingRectWithSize({width, 4000}).size);
}

inline const uint8_t* pixelAt(const BitmapImage& picture, int x, int y) {
  return picture.row(y) + static_cast<ptrdiff_t>(x) * 4;
}

/// The pixels that are not transparent: left and right, top and bottom, the latter exclusive.
struct Ink {
  int left = INT_MAX;
  int right = 0;
  int top = INT_MAX;
  int bottom = 0;
  int64_t alpha = 0;  ///< the sum

  bool isEmpty() const { return right <= left; }
  double centerX() const { return (left + right) / 2.0; }
};

/// The ink of the pixels that `counts` answers true for.
template <typename Predicate>
Ink inkWhere(const BitmapImage& picture, Predicate counts) {
  Ink ink;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      const uint8_t* pixel = pixelAt(picture, x, y);
      if (pixel[3] == 0 || !counts(pixel)) continue;
      ink.left = std::min(ink.left, x);
      ink.right = std::max(ink.right, x + 1);
      ink.top = std::min(ink.top, y);
      ink.bottom = std::max(ink.bottom, y + 1);
      ink.alpha += pixel[3];
    }
  }
  return ink;
}

inline Ink inkOf(const BitmapImage& picture) {
  return inkWhere(picture, [](const uint8_t*) { return true; });
}

inline std::vector<uint8_t> bytesOf(const BitmapImage& picture, const Ink& part) {
  std::vector<uint8_t> bytes;
  for (int y = part.top; y < part.bottom; ++y) {
    bytes.insert(bytes.end(), pixelAt(picture, part.left, y), pixelAt(picture, part.right, y));
  }
  return bytes;
}

inline std::vector<uint8_t> bytesOf(const PicturePtr& picture) {
  if (!picture) return {};
  return bytesOf(*picture, {0, picture->width(), 0, picture->height()});
}

/// Just the drawn part, wherever in the picture it is.
inline std::vector<uint8_t> inkBytesOf(const PicturePtr& picture) {
  return bytesOf(*picture, inkOf(*picture));
}

}  // namespace kestrel::test
