#pragma once

#include <kestrel/convert/Pictures.h>

#include <cstdint>
#include <optional>

namespace kestrel {

/// The pictures of two movies that are shown at the same time. The movie that has fewer of them a
/// second leads: each of its pictures meets the one of the other that begins nearest to it.
class PicturePairs {
 public:
  /// `offset`: by how much the copy's pictures come later, microseconds.
  PicturePairs(Pictures& original, Pictures& copy, int64_t offset);

  struct Pair {
    Pictures::Shown original;
    Pictures::Shown copy;
  };

  /// None when one of the movies has ended.
  std::optional<Pair> next();

  /// Reads what is left of both, so that it is counted.
  void readOn();

  /// What was read of a movie, and how many pictures of it met none.
  struct Count {
    int64_t read = 0;
    int64_t paired = 0;

    int64_t unpaired() const { return read - paired; }
  };
  const Count& originals() const { return originalLeads_ ? leader_.count : follower_.count; }
  const Count& copies() const { return originalLeads_ ? follower_.count : leader_.count; }

 private:
  struct Side {
    Pictures* pictures;
    int64_t offset;  // taken from its times
    Count count = {};

    std::optional<Pictures::Shown> next();
    int64_t begin(const Pictures::Shown& shown) const { return shown.start - offset; }
  };

  bool meets(const Pictures::Shown& leading) const;

  const bool originalLeads_;
  Side leader_;
  Side follower_;
  bool isBegun_ = false;
  bool wasPaired_ = false;                  // the follower's current one
  std::optional<Pictures::Shown> current_;  // of the follower
  std::optional<Pictures::Shown> following_;
};

}  // namespace kestrel
