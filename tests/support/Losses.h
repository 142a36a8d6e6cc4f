#pragma once

#include <string>

namespace kestrel::test {

/// Whether a line says of an input what of it is not in the result, and why.
bool tellsOfALoss(const std::string& line);

/// The lines of standard error but for those that tell of a loss.
std::string withoutLosses(const std::string& errors);

}  // namespace kestrel::test
