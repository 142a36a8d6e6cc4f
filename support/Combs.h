#pragma once

#include <cstdint>
#include <optional>

struct AVFrame;

namespace kestrel {

/// What two pictures in a row tell of how the first was scanned.
///
/// A camera that scans alternate lines at two times leaves combs where something moved: over ten
/// lines and more, each differs from those above and below but not from those two away. Fine
/// patterns that stand still look the same, and so only what moved between the two pictures
/// counts. Noise looks the same, too, but as often across: `noise` counts that, lines being
/// columns. Numbers are pixels of those columns that were looked at.
struct Combs {
  int64_t combed = 0;
  int64_t noise = 0;
  int64_t moving = 0;
  int64_t pixels = 0;

  /// Whether enough moves to tell.
  bool canTell() const;

  /// Whether the picture shows two moments.
  bool areSeen() const;
};

/// Looks for combs in a picture. `neighbor` comes before or after it and has the same size and
/// format. Nothing is counted in pictures whose pixels cannot be read one by one.
Combs countCombs(const AVFrame& picture, const AVFrame& neighbor);

/// How much speaks for the upper field of each picture, the one with the topmost line, having been
/// scanned before the lower one: positive for, negative against. `next` follows the picture.
int64_t topFieldFirst(const AVFrame& picture, const AVFrame& next);

}  // namespace kestrel
