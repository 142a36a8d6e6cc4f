#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/convert/ConversionPlan.h>

#include <string>
#include <vector>

struct AVFormatContext;

namespace kestrel {

/// The container indexes of the pictures and the sound that a plan takes of its input.
IndexSet streamsOf(const ConversionPlan& plan);

/// What of an opened input a conversion leaves behind though nobody said so, and why, a sentence
/// each: other streams, chapters, what is written on the file and its streams (languages, flags,
/// tags), a turn that the container of copied pictures cannot hold, and what streams that are kept
/// lose on their way.
std::vector<std::string> leftOutBy(const ConversionPlan& plan, const MediaInfo& info,
                                   const std::string& path, const AVFormatContext& input);

}  // namespace kestrel
