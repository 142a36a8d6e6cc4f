#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/TrackChoice.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// What settings must be whatever the input is: in range, and without a contradiction. What each
/// job asks of its own record is told beside the job; this is what several ask.
///
/// Each throws a `Failure` of the kind `kSettings` whose subject is the setting's name, with which
/// its sentence begins, too.

/// Throws the failure of one setting: `why` goes on after its name.
[[noreturn]] void refuse(const std::string& setting, const std::string& why);

/// The same of one of two that exclude each other.
[[noreturn]] void refuseBeside(const std::string& setting, const std::string& other);

/// The latest start: beyond any movie, and far from what would overflow; microseconds.
inline constexpr int64_t kLatestTime = int64_t{100'000} * 3600 * 1'000'000;

/// The furthest place on a time line that something is put at, seconds: nobody waits for longer.
inline constexpr double kFurthestPlace = 7 * 24 * 3600.0;

/// From 0, or a share from 0 to 1.
void requireMoment(const std::string& setting, const Moment& moment);

/// The time that is meant in a movie so long, which `path` names.
int64_t timeOf(const std::string& setting, const Moment& moment, std::optional<int64_t> length,
               const std::string& path);

/// A name of the catalogue, or "".
void requireEffect(const std::string& effect);

void requireAction(const std::string& setting, StreamAction action);
void requireDeinterlacing(const std::string& setting, Deinterlacing when);
void requireDenoising(const std::string& setting, Denoising strength);
void requireTitle(const std::optional<int>& title);
void requireChoice(const std::string& setting, const TrackChoice& choice);
void requireNumber(const std::string& setting, double number, double low, double high);
void requireRate(const std::string& setting, Rational rate);
void requireSide(const std::string& setting, int pixels);
void requireAspect(const std::string& setting, double aspect);
void requireBitRate(const std::string& setting, int bitsPerSecond);
void requireSampleRate(const std::string& setting, int rate);
void requireLayout(const std::string& setting, int64_t mask);
void requireVolume(const std::string& setting, double volume);
void requireLoudness(const std::string& setting, double lufs);

/// Refuses the first of the settings, named beside whether they are given, that would do nothing.
void requireNone(const std::vector<std::pair<const char*, bool>>& given, const std::string& where);

/// One of an enumeration's values: a host may have made it of any number.
template <typename Choice>
void requireOneOf(const std::string& setting, Choice choice, std::initializer_list<Choice> known) {
  if (std::ranges::count(known, choice) == 0)
    refuse(setting, fmt::format("'{}' is none of its values", static_cast<int>(choice)));
}

template <typename Value, typename Rule>
void whereGiven(const std::string& setting, const std::optional<Value>& value, Rule rule) {
  if (value) rule(setting, *value);
}

}  // namespace kestrel
