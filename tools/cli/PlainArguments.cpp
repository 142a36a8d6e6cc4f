#include "tools/cli/PlainArguments.h"

#include <algorithm>

namespace {

constexpr char kPlain = '\x1F';

}  // namespace

bool isPlain(std::string_view argument) { return argument.starts_with(kPlain); }

std::string withoutMark(const std::string& argument) {
  return isPlain(argument) ? argument.substr(1) : argument;
}

std::vector<std::string> marked(int argc, char** argv) {
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  const auto separator = std::ranges::find(arguments, "--");
  if (separator != arguments.end() && separator != arguments.begin()) {
    for (auto plain = separator + 1; plain != arguments.end(); ++plain) plain->insert(0, 1, kPlain);
    arguments.erase(separator);
  }
  std::ranges::reverse(arguments);
  return arguments;
}
