#pragma once

#include <kestrel/convert/Join.h>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range, and the output is none of the inputs.
void require(const JoinSettings& settings);

}  // namespace kestrel
