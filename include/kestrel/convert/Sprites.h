#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// How a movie is cut into equal spans, each with a small picture on one common sheet, for players
/// that show it while somebody looks for a place in the movie. Times are microseconds.
struct SpritePlan {
  /// One span, and where its picture lies on the sheet: pixels from the upper left.
  struct Sprite {
    int64_t start = 0;
    int64_t end = 0;
    int x = 0;
    int y = 0;
  };

  std::vector<Sprite> sprites = {};
  int columns = 0;
  int rows = 0;
  int width = 0;  ///< of a picture
  int height = 0;
};

/// The span that gives a movie at most a hundred pictures, of those that people count in: 1, 2, 5,
/// 10, 15, 20 or 30 seconds, or whole minutes.
KESTREL_API int64_t usualSpan(int64_t duration);

/// Throws a `Failure` of the settings when the sheet would be larger than what players show.
KESTREL_API SpritePlan planSprites(int64_t duration, int64_t span, int width, int height);

/// The spans as WebVTT, each with its part of the picture file `sheet`, a name beside the text's
/// own.
KESTREL_API std::string spriteText(const SpritePlan& plan, const std::string& sheet);

}  // namespace kestrel
