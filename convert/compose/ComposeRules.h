#pragma once

#include <kestrel/convert/Compose.h>

#include <vector>

namespace kestrel {

/// Throws a `Failure` unless the placements are possible, and the output is none of their files.
void require(const std::vector<Placement>& placements);
void require(const CompositionSettings& settings);

}  // namespace kestrel
