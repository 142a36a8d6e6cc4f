#pragma once

#include <kestrel/convert/ConversionPlan.h>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range and without a contradiction.
void require(const ConversionSettings& settings);

/// Throws one where a setting shapes pictures or sound and none are encoded: it would do nothing.
void requireSense(const ConversionSettings& settings, bool encodesPictures, bool encodesSound);

}  // namespace kestrel
