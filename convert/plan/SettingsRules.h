#pragma once

#include <kestrel/convert/ConversionPlan.h>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range and without a contradiction.
void require(const ConversionSettings& settings);

}  // namespace kestrel
