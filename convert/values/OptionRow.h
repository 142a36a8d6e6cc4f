#pragma once

#include <kestrel/convert/OptionInfo.h>

#include <functional>
#include <string>
#include <string_view>

#include <kestrel/convert/Values.h>

namespace kestrel {

/// What an option shapes: it does nothing where that is not encoded.
enum class Shapes { kPictures, kSound, kNothing };

/// One option of a record of settings: what is told of it, and how its value is read. Of those with
/// the same word in `saysTheSame` one alone can be given; what is `ofEncoder` has a meaning for one
/// codec's encoder only.
template <typename Settings>
struct OptionRow {
  /// Takes the option's name, for messages, and its value.
  using Setter =
      std::function<void(Settings& settings, std::string_view option, const std::string& text)>;

  OptionInfo info = {};
  Setter set = {};
  Shapes shapes = Shapes::kNothing;
  std::string_view saysTheSame = {};
  bool ofEncoder = false;
};

// Setters of rows.

template <auto member, auto parse>
inline constexpr auto set = [](auto& settings, std::string_view option, const std::string& text) {
  settings.*member = parse(option, text);
};

/// `value`: what the switch sets where it is on.
template <auto member, bool value = true>
inline constexpr auto turn = [](auto& settings, std::string_view option, const std::string& text) {
  settings.*member = parseSwitch(option, text) == value;
};

// Values that are taken as they are written.

inline std::string parseText(std::string_view /*option*/, const std::string& text) { return text; }

inline double parseAnyNumber(std::string_view option, const std::string& text) {
  return parseNumber(option, text);
}

inline TrackChoice parseTracks(std::string_view /*option*/, const std::string& text) {
  return parseTrackChoice(text);
}

}  // namespace kestrel
