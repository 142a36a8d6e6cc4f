#pragma once

#include <string>
#include <vector>

namespace kestrel {

/// What a program that has ended has left.
struct ProgramOutput {
  static constexpr int kNotThere = 127;  ///< there is no such program, or it cannot be run

  int status = 0;  ///< its exit status, or 128 + n after signal n
  std::string out = {};
  std::string err = {};
};

/// Runs a program, found as shells find it, to its end. No shell is involved, and it has nothing to
/// read.
ProgramOutput runProgram(const std::vector<std::string>& command);

}  // namespace kestrel
