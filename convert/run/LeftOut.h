#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <string>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// The container indexes of what of its input a plan takes.
IndexSet streamsOf(const ConversionPlan& plan);

/// What of an opened input a conversion leaves behind though nobody said so, and why, a sentence
/// each: its other streams, and a turn that the container of copied pictures cannot hold.
std::vector<std::string> leftOutBy(const ConversionSettings& settings, const ConversionPlan& plan,
                                   const LMMediaSource& input);

}  // namespace kestrel
