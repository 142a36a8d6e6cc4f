#pragma once

#include <kestrel/convert/Compare.h>
#include <kestrel/convert/OutputFile.h>

namespace kestrel {

/// Whether a plot's name asks for an SVG; throws a `Failure` for one that is no picture's either.
bool isSvg(const std::string& target);

/// Draws a comparison's scores over time: for each stretch of time the range of its scores and
/// their mean, and a line at the 5th percentile. The form is that of the file's name.
void writeScorePlot(const Comparison& comparison, OutputFile& file);

}  // namespace kestrel
