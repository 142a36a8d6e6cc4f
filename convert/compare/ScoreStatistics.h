#pragma once

#include <kestrel/convert/Compare.h>

namespace kestrel {

/// Fills in what a comparison's scores come to: means, percentile, least, worst spans. There is one
/// score at least.
void summarise(Comparison& comparison);

}  // namespace kestrel
