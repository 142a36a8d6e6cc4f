#pragma once

#include <string>

#include "tools/cli/Description.h"

/// What shells and `man` are given, made of what the program's help is made of.

/// Completion of its command line. All complete verbs, options and values; of values that depend on
/// the machine or on a file they ask `PROGRAM complete QUESTION -- WORD…`.
std::string bashCompletion(const ProgramDescription& program);
std::string zshCompletion(const ProgramDescription& program);
std::string fishCompletion(const ProgramDescription& program);

/// What stands at a manual page's edges.
struct ManualEdges {
  std::string date;     ///< "2026-03-01"
  std::string version;  ///< of the program
};

/// The pages of the program and of a verb, for section 1, in the macros that `man` reads.
std::string manualPage(const ProgramDescription& program, const ManualEdges& edges);
std::string manualPage(const ProgramDescription& program, const VerbDescription& verb,
                       const ManualEdges& edges);
