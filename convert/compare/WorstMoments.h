#pragma once

#include <kestrel/convert/Compare.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/Pictures.h>

namespace kestrel {

/// Shows the worst pair of each of a comparison's worst spans, three at most: original, copy, and
/// what they differ by, four times as strong.
void writeWorstMoments(const Comparison& comparison, Pictures& original, Pictures& copy,
                       OutputFile& file);

}  // namespace kestrel
