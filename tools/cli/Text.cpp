#include "tools/cli/Text.h"

#include <fmt/format.h>

#include "tools/terminal/Outcome.h"

using namespace kestrel;

Failure withTypedTime(const Failure& failure, const std::string& typed) {
  if (failure.subject() != "time") return failure;
  // "time: '0:11' lies behind the end of …".
  const std::string sentence = failure.what();
  if (!sentence.starts_with("time: '")) return failure;
  return wrongUsage(fmt::format("--time: '{}{}", typed, sentence.substr(sentence.find("' "))));
}
