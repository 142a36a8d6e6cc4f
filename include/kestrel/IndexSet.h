#pragma once

#include <cstdint>
#include <set>

namespace kestrel {

/// An ordered set of unsigned indexes.
using IndexSet = std::set<uint32_t>;

}  // namespace kestrel
