#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/Thumbnail.h>

#include <cstdint>
#include <optional>
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

/// The shortest span that cuts a movie into at most a hundred, of those that people count in: 1, 2,
/// 5, 10, 15, 20 or 30 seconds, or whole minutes. A second for a duration below 0.
KESTREL_API int64_t usualSpan(int64_t duration);

/// Cuts a movie of a duration (0 or more) into spans (above 0), with pictures of 1 to 16384 pixels
/// a side. Throws a `Failure` of the settings for what is not in these ranges, and where the sheet
/// would be larger than what players show, 16384 pixels a side.
KESTREL_API SpritePlan planSprites(int64_t duration, int64_t span, int width, int height);

/// The spans as WebVTT, each with its part of the picture file `sheet`, a name beside the text's
/// own.
KESTREL_API std::string spriteText(const SpritePlan& plan, const std::string& sheet);

/// The sprites of a movie; `{}` beside the two names means the usual ones.
struct SpritesSettings {
  std::string input = {};           ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};    ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                    ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};         ///< by which the input may be read where it is no file
  std::string output = {};          ///< its name ends in .png, .jpg, .webp or .avif
  bool replaces = false;            ///< existing targets may be replaced
  std::optional<int> quality = {};  ///< of the file, 0 to 100; absent: what is usual. Not of PNG
  LookSettings look = {};
  bool best = false;                 ///< from each span the best picture, by `bestPictureTime`
  PictureBox size = {};              ///< of one picture; by default it fits into 160x90
  std::optional<Moment> every = {};  ///< their step, above 0; absent: the usual span
};

/// Draws a movie's sprites into a file, and a WebVTT file beside it, of the same name but for
/// ".vtt". Both appear only when they are whole. Throws `Failure`, also for a movie whose length is
/// not known.
KESTREL_API Report writeSprites(const SpritesSettings& settings, const Events& events = {});

}  // namespace kestrel
