#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// The negative: each channel c becomes 1 - c.
std::shared_ptr<Filter> makeColorInvert(const std::string& name);

}  // namespace kestrel
