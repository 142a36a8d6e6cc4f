#pragma once

#include <kestrel/convert/Cut.h>

#include <vector>

namespace kestrel {

/// What settings of a cut must be whatever the input is; throws `Failure`.
void require(const CutSettings& settings);

/// What stays, whichever way that was said.
std::vector<CutSpan> keptSpans(const CutSettings& settings);

}  // namespace kestrel
