#include "platform/image/filters/PlaceLayer.h"

#include <algorithm>

namespace kestrel {

void PlaceLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  constexpr int kSpan = 1024;
  input_.render(worker, rect, out);
  for (int y = rect.y0; y < rect.y1; ++y) {
    for (int x = rect.x0; x < rect.x1;) {
      const int begin = x & ~(kSpan - 1);
      const int end = std::min(begin + kSpan, rect.x1);
      apply(begin, y, x - begin, out.at(x - rect.x0, y - rect.y0).pixels,
            static_cast<size_t>(end - x));
      x = end;
    }
  }
}

}  // namespace kestrel
