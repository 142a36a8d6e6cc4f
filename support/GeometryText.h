#pragma once

#include <kestrel/Geometry.h>

#include <string>
#include <string_view>

namespace kestrel {

/// Sizes and rectangles as texts: "{640, 480}" is a width and a height, "{{10, 20}, {300, 200}}" an
/// origin and a size. Numbers are decimal with a point, as short as they can be without another
/// value; no locale has a say.
///
/// White space between the parts may be more or less when read. A text that is anything else, also
/// one with numbers that are not finite, reads as zeros.

std::string textOfSize(const Size& size);
Size sizeOfText(std::string_view text);

std::string textOfRect(const Rect& rect);
Rect rectOfText(std::string_view text);

}  // namespace kestrel
