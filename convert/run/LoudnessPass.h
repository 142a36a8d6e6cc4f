#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace kestrel {

class LMMediaSource;

/// How loud the sound is whose loudness a plan sets, by its place in `streams`: LUFS, none for
/// silence. It is read as the conversion reads it, over the same span, mixed and resampled alike.
///
/// `source`: open, and nobody else's. `seconds`: how long the result will be, 0 where that is not
/// known, for the progress that is told. Throws a `Failure` that says so where it is interrupted.
std::map<size_t, std::optional<double>> measureLoudness(
    const std::shared_ptr<LMMediaSource>& source, const ConversionPlan& plan, double seconds,
    const Events& events);

/// Whether a plan sets the loudness of any sound that is encoded.
bool setsLoudness(const ConversionPlan& plan);

}  // namespace kestrel
