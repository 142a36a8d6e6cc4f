#include "platform/image/layers/PartedPicture.h"

#include <algorithm>

namespace kestrel {

namespace {

/// What of `rect` lies outside of `hole`: up to four rectangles.
void addRest(const IntRect& rect, const IntRect& hole, std::pmr::vector<IntRect>& rest) {
  const IntRect shared = rect.intersect(hole);
  const auto add = [&rest](const IntRect& part) {
    if (!part.isEmpty()) rest.push_back(part);
  };
  if (shared.isEmpty()) return add(rect);
  add({rect.x0, rect.y0, rect.x1, shared.y0});
  add({rect.x0, shared.y1, rect.x1, rect.y1});
  add({rect.x0, shared.y0, shared.x0, shared.y1});
  add({shared.x1, shared.y0, rect.x1, shared.y1});
}

}  // namespace

PartedPicture::PartedPicture(const Layer* layer, const IntRect& picture, const YUVFormat& format)
    : picture_(picture), format_(format) {
  // What no layer covers is black.
  const IntRect all{0, 0, picture.width(), picture.height()};
  mixed_.push_back(all);
  if (!layer) return;
  std::pmr::vector<const Layer*> parts(&memory_);
  layer->addParts(parts);
  for (const Layer* part : parts) add(*part);
  if (std::ranges::count(mixed_, all) > 0) plain_.clear();
}

void PartedPicture::add(const Layer& layer) {
  const IntRect part = partOf(layer.bounds());
  if (part.isEmpty()) return;
  const auto planes = layer.plainPlanes();
  const bool isPlain = planes && planes->source->planes[1].data && planes->source->planes[2].data &&
                       meansTheSame(planes->source->format, format_);
  addMixed(grown(part));
  if (!isPlain) return;
  const IntRect whole = shrunk(part);
  if (whole.isEmpty()) return;
  remove(whole);
  plain_.push_back({*planes, whole});
}

void PartedPicture::addMixed(const IntRect& rect) {
  remove(rect);
  mixed_.push_back(rect);
}

void PartedPicture::remove(const IntRect& rect) {
  std::pmr::vector<IntRect> rest(&memory_);
  for (const IntRect& part : mixed_) addRest(part, rect, rest);
  mixed_ = std::move(rest);
}

IntRect PartedPicture::partOf(const IntRect& bounds) const {
  const IntRect shown = bounds.intersect(picture_);
  if (shown.isEmpty()) return {};
  return {shown.x0 - picture_.x0, picture_.y1 - shown.y1, shown.x1 - picture_.x0,
          picture_.y1 - shown.y0};
}

IntRect PartedPicture::grown(const IntRect& part) const {
  const auto down = [](int at, int shift) { return at >> shift << shift; };
  const auto up = [](int at, int shift, int most) {
    return std::min(((at + (1 << shift) - 1) >> shift) << shift, most);
  };
  const int x = format_.chromaShiftX;
  const int y = format_.chromaShiftY + (format_.byFields ? 1 : 0);
  return {down(part.x0, x), down(part.y0, y), up(part.x1, x, picture_.width()),
          up(part.y1, y, picture_.height())};
}

IntRect PartedPicture::shrunk(const IntRect& part) const {
  const auto up = [](int at, int shift) { return ((at + (1 << shift) - 1) >> shift) << shift; };
  const auto down = [](int at, int shift, int most) {
    return at == most ? most : at >> shift << shift;
  };
  const int x = format_.chromaShiftX;
  const int y = format_.chromaShiftY + (format_.byFields ? 1 : 0);
  const IntRect result{up(part.x0, x), up(part.y0, y), down(part.x1, x, picture_.width()),
                       down(part.y1, y, picture_.height())};
  return result.isEmpty() ? IntRect{} : result;
}

}  // namespace kestrel
