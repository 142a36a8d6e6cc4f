#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <string>

namespace kestrel {

class LMMediaSource;

/// Throws a `Failure` unless a plan, be it made or changed by the host, can be carried out: its
/// streams are the opened input's, its numbers in range, its codecs known to the container. What
/// contradicts is a fault of the settings, whose subject is the plan's member; what the container
/// cannot hold is one of `output`.
void requirePlan(const ConversionPlan& plan, const LMMediaSource& input, const std::string& output);

}  // namespace kestrel
