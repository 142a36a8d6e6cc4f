#pragma once

#include <kestrel/Protocols.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommandLine.h"

/// What was typed of protocols by which inputs may be read that are no files.
struct TypedProtocols {
  std::vector<std::string> names;

  kestrel::Protocols list() const;  ///< as settings take it; throws `Failure` for an unknown one
};

/// What was typed of an input beside its name: a title of a disc, and protocols.
struct TypedInput {
  std::string title;
  std::optional<int> angle;
  TypedProtocols protocols;

  std::optional<int> number() const;  ///< as settings take it; throws `Failure` for no title
  int angleNumber() const { return angle.value_or(1); }
};

/// Add the options that fill them.
void addProtocolOption(Verb& verb, TypedProtocols& typed);
void addInputOptions(Verb& verb, TypedInput& typed);

/// What the help says of the option.
inline constexpr char kProtocolHelp[] =
    "read inputs that are no files, too: https, rtsp, concat …; several, or with commas";
