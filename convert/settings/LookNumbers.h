#pragma once

#include <kestrel/MovieLook.h>
#include <kestrel/convert/LookSettings.h>

#include <array>

namespace kestrel {

/// A number that people set of a look and that the movie takes as it is. Options are read, settings
/// checked and looks made by the same table.
struct LookNumber {
  const char* setting;  ///< the member's name
  const char* option;
  float LookSettings::*member;
  float MovieLook::*target;
  double low;
  double high;
};

inline constexpr std::array kLookNumbers{
    LookNumber{"saturation", "saturation", &LookSettings::saturation, &MovieLook::saturation, 0,
               10},
    LookNumber{"brightness", "brightness", &LookSettings::brightness, &MovieLook::brightness, 0,
               10},
    LookNumber{"contrast", "contrast", &LookSettings::contrast, &MovieLook::contrast, 0, 10},
    LookNumber{"hue", "hue", &LookSettings::hue, &MovieLook::hue, 0, 10},
    // At 1 there is no room for a text.
    LookNumber{"subtitlePosition", "subtitle-position", &LookSettings::subtitlePosition,
               &MovieLook::subtitlePosition, 0, 0.9},
};

}  // namespace kestrel
