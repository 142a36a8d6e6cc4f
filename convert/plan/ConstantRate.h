#pragma once

#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "convert/plan/PictureRates.h"

namespace kestrel {

/// What a constant rate makes of pictures that begin at `times`: microseconds, rising.

/// How many pictures are left out where each tick of a rate shows the picture of its middle.
size_t picturesLostAt(std::span<const int64_t> times, Rational rate);

/// The lowest usual rate, `own` among them, at which each picture has a tick of its own and is
/// shown less than a tick too early and no more than one too late; none up to 120 a second, or up
/// to `most`.
std::optional<Rational> rateForAll(std::span<const int64_t> times, Rational own,
                                   const std::optional<Rational>& most,
                                   const PictureRates& possible);

/// "avi has one rate, 25 a second"
std::string oneRate(std::string_view container, Rational rate);

/// "2 of 354: " and why.
std::string picturesLost(size_t lost, size_t all, std::string_view why);

/// Whether two pictures follow each other sooner than a rate has it, but for what containers round.
bool comeFasterThan(std::span<const int64_t> times, Rational rate);

}  // namespace kestrel
