#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kestrel {

/// The picture on which all named effects are shown; `{}` beside the two names means that in the
/// middle of the movie.
struct EffectSheetSettings {
  std::string input = {};           ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};    ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                    ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};         ///< by which the input may be read where it is no file
  std::string output = {};          ///< its name ends in .png, .jpg, .webp or .avif
  bool replaces = false;            ///< an existing target may be replaced
  std::optional<int> quality = {};  ///< of the file, 0 to 100; absent: what is usual. Not of PNG
  std::optional<Moment> time = {};  ///< from the movie's start
};

/// Draws one picture of a movie untouched and in every effect of `EffectManager` on a sheet. Throws
/// `Failure` as `writeThumbnail` does.
KESTREL_API Report writeEffectSheet(const EffectSheetSettings& settings, const Events& events = {});

}  // namespace kestrel
