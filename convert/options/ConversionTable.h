#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <vector>

#include "convert/values/OptionRow.h"

namespace kestrel {

/// The options that say how a file is converted but for those of the look, in the order of the
/// help: command line, presets and forms go by this table.
const std::vector<OptionRow<ConversionSettings>>& conversionTable();

}  // namespace kestrel
