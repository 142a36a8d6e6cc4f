#pragma once

#include <optional>

namespace kestrel {

/// How large a picture may be, in one of three ways; it is the largest of its shape that fits. `{}`
/// is the size that is usual for what is drawn.
struct PictureBox {
  std::optional<int> width = {};  ///< pixels; a side that is left open sets no limit
  std::optional<int> height = {};
  /// A frame of 16:9 with so many lines (720: "720p"), 2 to 36861; on its side for a picture that
  /// is higher than wide.
  std::optional<int> lines = {};
  std::optional<double> scale = {};  ///< a factor on the picture's own sides, 0.001 to 100

  bool operator==(const PictureBox&) const = default;
};

}  // namespace kestrel
