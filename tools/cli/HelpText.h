#pragma once

#include <string>

#include "tools/cli/Description.h"

/// The help of the program and that of a verb, for a terminal of so many columns. No line is wider
/// but for what cannot be broken: a long word, the lines of an example.
std::string helpText(const ProgramDescription& program, int columns);
std::string helpText(const ProgramDescription& program, const VerbDescription& verb, int columns);

/// How many columns help is laid out for: what COLUMNS in the environment says, or the width of the
/// terminal that is standard output, or 80. No fewer than 40, and no more than reads well.
int helpColumns();
