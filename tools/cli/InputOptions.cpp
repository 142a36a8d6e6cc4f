#include "tools/cli/InputOptions.h"

#include <kestrel/convert/Values.h>

using namespace kestrel;

Protocols TypedProtocols::list() const {
  Protocols list;
  for (const std::string& typed : names)
    for (std::string& name : parseProtocols("--allow-protocol", typed))
      list.push_back(std::move(name));
  return list;
}

std::optional<int> TypedInput::number() const { return parseTitle("--title", title); }

void addProtocolOption(Verb& verb, TypedProtocols& typed) {
  verb.option("--allow-protocol", typed.names, kProtocolHelp).type("NAME").repeatable();
}

void addInputOptions(Verb& verb, TypedInput& typed) {
  verb.option("--title", typed.title, "of a disc: a number (see 'kestrel dvd') or 'main'")
      .type("N|main");
  verb.option("--angle", typed.angle, "of a title that has several, counted from 1 (default: 1)")
      .type("N");
  addProtocolOption(verb, typed.protocols);
}
