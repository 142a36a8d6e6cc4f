#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Exposure in stops (EV, default 0): each channel c becomes c × 2^EV.
std::shared_ptr<Filter> makeExposureAdjust(const std::string& name);

}  // namespace kestrel
