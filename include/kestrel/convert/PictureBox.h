#pragma once

#include <optional>

namespace kestrel {

/// How large a picture may be, pixels; it is the largest of its shape that fits. A side that is
/// left open sets no limit; `{}` is the size that is usual for what is drawn.
struct PictureBox {
  std::optional<int> width = {};
  std::optional<int> height = {};

  bool operator==(const PictureBox&) const = default;
};

}  // namespace kestrel
