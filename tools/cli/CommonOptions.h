#pragma once

#include <kestrel/Protocols.h>
#include <kestrel/convert/Job.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommandLine.h"
#include "tools/terminal/ProgressDisplay.h"

// What several verbs have options for: what was typed, and functions that add the options that fill
// it.

/// Protocols by which inputs may be read that are no files.
struct TypedProtocols {
  std::vector<std::string> names;

  kestrel::Protocols list() const;  ///< as settings take it; throws `Failure` for an unknown one
};
void addProtocolOption(Verb& verb, TypedProtocols& typed);

/// What is said of an input beside its name: a title of a disc, and protocols.
struct TypedInput {
  std::string title;
  std::optional<int> angle;
  TypedProtocols protocols;

  std::optional<int> number() const;  ///< as settings take it; throws `Failure` for no title
  int angleNumber() const { return angle.value_or(1); }
};
void addInputOptions(Verb& verb, TypedInput& typed);

/// How a job goes to Slurm.
struct TypedSlurm {
  std::string partition, time;
  std::optional<int> arrayLimit;

  kestrel::SlurmSettings settings() const;  ///< parts are made by the running program
};
/// `of`: what the options' texts begin with.
void addSlurmOptions(Verb& verb, TypedSlurm& typed, const std::string& of);

/// How progress is told.
struct TypedProgress {
  std::string text = "bar";

  ProgressDisplay::Style style() const;  ///< throws `Failure` for none
};
void addProgressOption(Verb& verb, TypedProgress& typed);
