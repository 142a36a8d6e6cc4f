#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <cstdint>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range and without a contradiction.
void require(const ConversionSettings& settings);

/// Throws one for a span that ends where it begins, or before.
void requireBefore(int64_t start, int64_t end);

/// Throws one where a setting shapes pictures or sound and none are encoded: it would do nothing.
void requireSense(const ConversionSettings& settings, bool encodesPictures, bool encodesSound);

}  // namespace kestrel
