#pragma once

#include <optional>
#include <string>

#include "tools/cli/CommandLine.h"

/// What was typed to choose a title of a disc.
struct TypedTitle {
  std::string title;
  std::optional<int> angle;

  std::optional<int> number() const;  ///< as settings take it; throws `Failure` for no title
  int angleNumber() const { return angle.value_or(1); }
};

/// Adds the options that fill it.
void addTitleOptions(Verb& verb, TypedTitle& typed);
