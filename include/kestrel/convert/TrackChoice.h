#pragma once

#include <kestrel/IndexSet.h>

#include <string>
#include <utility>

namespace kestrel {

/// Which tracks of one kind (sound, subtitles) are meant; `{}` is the one that players choose.
struct TrackChoice {
  enum class Kind {
    kUsual,     ///< the one that players choose
    kAll,       ///< every one
    kNumbers,   ///< those in `numbers`
    kLanguage,  ///< those in `language`
  };

  Kind kind = Kind::kUsual;
  IndexSet numbers = {};      ///< from 0, in the order in which users count tracks of the kind
  std::string language = {};  ///< a code such as "de", "deu" or "ger"

  static TrackChoice all() { return {.kind = Kind::kAll}; }
  static TrackChoice of(IndexSet numbers) {
    return {.kind = Kind::kNumbers, .numbers = std::move(numbers)};
  }
  static TrackChoice in(std::string language) {
    return {.kind = Kind::kLanguage, .language = std::move(language)};
  }

  bool operator==(const TrackChoice&) const = default;
};

}  // namespace kestrel
