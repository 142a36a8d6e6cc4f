#pragma once

#include <kestrel/LMFFMovie.h>

#include <optional>

#include "convert/look/Look.h"

namespace kestrel {

/// The part of an opened movie's pictures that black bars leave free, in pixels of the pictures as
/// they are decoded, before any turn; every number is even. Nothing where there are no bars, and
/// where it is not certain that they are bars: it looks at pictures from all over the movie, and
/// what is picture in any of them stays.
///
/// The movie is read from the first video media; afterwards that is where the clock is. Throws a
/// `Failure` when the interrupt of what it reads says so.
std::optional<Area> withoutBars(LMFFMovie& movie);

}  // namespace kestrel
