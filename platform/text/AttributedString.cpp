#include <kestrel/AttributedString.h>

#include "platform/text/TextLayout.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

namespace kestrel {

namespace {

constexpr int kBytesPerPixel = 4;
/// The largest side of a picture that the drawing library takes.
constexpr double kMaximumSide = 32767;

bool canDrawIn(const Rect& rect) {
  const bool isFinite = std::isfinite(rect.origin.x) && std::isfinite(rect.origin.y) &&
                        std::isfinite(rect.size.width) && std::isfinite(rect.size.height);
  return isFinite && !isEmpty(rect) && !isInfinite(rect);
}

/// The row's pixels as the picture wants them: from premultiplied native words to R, G, B, A that
/// are not premultiplied, with the alpha times `alphaScale`.
void convertRow(const uint8_t* source, uint8_t* target, int width, double alphaScale) {
  for (int x = 0; x < width; ++x) {
    uint32_t word = 0;
    std::memcpy(&word, source + static_cast<size_t>(x) * kBytesPerPixel, sizeof word);
    uint8_t* pixel = target + static_cast<size_t>(x) * kBytesPerPixel;
    const uint32_t alpha = word >> 24;
    const auto straight = [alpha](uint32_t component) {
      return static_cast<uint8_t>(std::min(255u, (component * 255 + alpha / 2) / alpha));
    };
    if (alpha == 0) {
      std::fill_n(pixel, kBytesPerPixel, uint8_t{0});
      continue;
    }
    pixel[0] = straight((word >> 16) & 0xFF);
    pixel[1] = straight((word >> 8) & 0xFF);
    pixel[2] = straight(word & 0xFF);
    pixel[3] = static_cast<uint8_t>(std::lround(alpha * alphaScale));
  }
}

/// The pixels of `area`, which lies on whole pixels, of `string` drawn in `rect`. Null when there
/// is nothing to draw, or not enough memory.
std::shared_ptr<const BitmapImage> rasterize(const AttributedString& string, const Rect& rect,
                                             const Rect& area, int options) {
  if (isEmpty(area) || area.size.width > kMaximumSide || area.size.height > kMaximumSide) {
    return nullptr;
  }
  const int width = static_cast<int>(area.size.width);
  const int height = static_cast<int>(area.size.height);
  const SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  const CairoPtr cairo(cairo_create(surface.get()));
  const size_t rowLength = static_cast<size_t>(width) * kBytesPerPixel;
  std::shared_ptr<uint8_t[]> pixels(new (std::nothrow)
                                        uint8_t[rowLength * static_cast<size_t>(height)]);
  if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS || !pixels) return nullptr;

  cairo_translate(cairo.get(), rect.minX() - area.minX(), area.maxY() - rect.maxY());
  cairo_rectangle(cairo.get(), 0, 0, rect.size.width, rect.size.height);
  cairo_clip(cairo.get());
  const TextLayout layout(string, rect.size, (options & kTruncatesLastVisibleLine) != 0);
  layout.draw(cairo.get());

  cairo_surface_flush(surface.get());
  const uint8_t* drawn = cairo_image_surface_get_data(surface.get());
  const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface.get()));
  for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
    convertRow(drawn + y * stride, pixels.get() + y * rowLength, width, layout.sharedAlpha());
  }
  return BitmapImage::sharing(std::move(pixels), width, height, width * kBytesPerPixel);
}

}  // namespace

AttributedString::AttributedString(std::string text, TextAttributes attributes,
                                   std::vector<TextRun> runs)
    : text_(std::move(text)), attributes_(std::move(attributes)), runs_(std::move(runs)) {}

AttributedString AttributedString::trimmed() const {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text_.data());
  const size_t size = text_.size();
  size_t begin = 0;
  size_t end = 0;  // after the last character that is no white space
  for (size_t next = 0; next < size;) {
    const size_t start = next;
    UChar32 c = 0;
    U8_NEXT(bytes, next, size, c);
    if (c >= 0 && u_isUWhiteSpace(c)) continue;
    if (end == 0) begin = start;
    end = next;
  }

  std::vector<TextRun> runs;
  for (TextRun run : runs_) {
    const size_t first = std::min(run.location, size);
    const size_t from = std::clamp(first, begin, end);
    const size_t to = std::clamp(first + std::min(run.length, size - first), begin, end);
    run.location = from - begin;
    run.length = to - from;
    if (run.length > 0) runs.push_back(run);
  }
  return AttributedString(text_.substr(begin, end - begin), attributes_, std::move(runs));
}

Rect AttributedString::boundingRectWithSize(const Size& size, int options) const {
  const TextLayout layout(*this, size, (options & kTruncatesLastVisibleLine) != 0);
  const double limit = (options & kTruncatesLastVisibleLine) != 0 ? size.height : INFINITY;
  const Rect lines{{0, 0}, {layout.width(), std::min(layout.height(), limit)}};
  if (kestrel::isEmpty(lines)) return {};
  if ((options & kUsesLineFragmentOrigin) != 0) return lines;
  return {{0, layout.firstBaseline() - lines.size.height}, lines.size};
}

void AttributedString::drawInRect(const Rect& rect, BitmapContext& context, int options) const {
  if (!canDrawIn(rect)) return;
  const Rect surface{{0, 0},
                     {static_cast<double>(context.width()), static_cast<double>(context.height())}};
  const Rect area = intersection(integral(rect), surface);
  const auto image = rasterize(*this, rect, area, options);
  if (image) context.drawImage(*image, area);
}

std::shared_ptr<const BitmapImage> AttributedString::bitmapImageWithSize(const Size& size,
                                                                         int options) const {
  const Rect rect{{0, 0}, size};
  if (!canDrawIn(rect)) return nullptr;
  return rasterize(*this, rect, integral(rect), options);
}

}  // namespace kestrel
