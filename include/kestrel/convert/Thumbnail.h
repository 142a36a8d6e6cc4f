#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/PictureBox.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kestrel {

/// Which picture of a movie goes into a file; `{}` beside the two names means that at a tenth of
/// the length, as it is.
struct ThumbnailSettings {
  std::string input = {};           ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};    ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                    ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};         ///< by which the input may be read where it is no file
  std::string output = {};          ///< its name ends in .png, .jpg, .webp or .avif
  bool replaces = false;            ///< an existing target may be replaced
  std::optional<int> quality = {};  ///< of the file, 0 to 100; absent: what is usual. Not of PNG
  LookSettings look = {};
  PictureBox size = {};  ///< by default its own; where the look has a zoom, both sides are filled

  std::optional<Moment> time = {};  ///< from the movie's start; absent: a tenth of the length

  /// Within five seconds of the time, or anywhere where none is given, the picture that shows most:
  /// no black, blurred or changing one, as `bestPictureTime` judges.
  bool best = false;
};

/// Draws the picture that a player shows at a time into a file, which appears only when it is
/// whole. Throws `Failure`: of the settings with the subject "time" for one behind the end,
/// and for a share where the length is not known.
KESTREL_API Report writeThumbnail(const ThumbnailSettings& settings, const Events& events = {});

}  // namespace kestrel
