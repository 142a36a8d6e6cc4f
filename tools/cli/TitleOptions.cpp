#include "tools/cli/TitleOptions.h"

#include <kestrel/convert/Values.h>

std::optional<int> TypedTitle::number() const { return kestrel::parseTitle("--title", title); }

void addTitleOptions(Verb& verb, TypedTitle& typed) {
  verb.option("--title", typed.title, "of a disc: a number (see 'kestrel dvd') or 'main'")
      .type("N|main");
  verb.option("--angle", typed.angle, "of a title that has several, counted from 1 (default: 1)")
      .type("N");
}
