#include "tools/terminal/Say.h"

#include <errno.h>  // where the program's name is
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include <kestrel/convert/Text.h>

using namespace kestrel;

void say(const std::string& sentence) {
  std::string line = printable(sentence);  // names of files may hold anything
  std::ranges::replace(line, '\n', ' ');
  fmt::print(stderr, "{}: {}\n", program_invocation_short_name, line);
}
