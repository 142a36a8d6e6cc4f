#pragma once

#include <kestrel/convert/Scenes.h>

#include <cstdint>
#include <optional>

namespace kestrel {

/// The scenes of a span of a movie, microseconds from its start; without an end, of all behind its
/// start. Progress counts from there. Throws a `Failure` where there are no pictures and when
/// interrupted.
Scenes scenesWithin(const ScenesSettings& settings, int64_t from, std::optional<int64_t> to,
                    const Events& events);

}  // namespace kestrel
