#include "tools/terminal/Output.h"

#include <errno.h>  // where the program's name is
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

#include <kestrel/convert/Text.h>
#include "tools/terminal/Outcome.h"

using namespace kestrel;

void say(const std::string& sentence) {
  std::string line = printable(sentence);  // names of files may hold anything
  std::ranges::replace(line, '\n', ' ');
  line = fmt::format("{}: {}\n", program_invocation_short_name, line);
  // Where nobody can read it, there is nobody to tell.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void writeStandardOutput(const std::string& text) {
  errno = 0;
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isWritten && std::fflush(stdout) == 0) return;
  if (errno == EPIPE) throw failed("");
  throw failed("cannot write to standard output: " + std::generic_category().message(errno));
}

void writeDocument(const nlohmann::ordered_json& document) {
  using Handler = nlohmann::ordered_json::error_handler_t;
  writeStandardOutput(document.dump(2, ' ', false, Handler::replace) + "\n");
}

std::string tableText(const std::vector<std::vector<std::string>>& rows, size_t rightFrom) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string_view gap = i == 0 ? "" : "  ";
      line += i < rightFrom ? fmt::format("{}{:<{}}", gap, row[i], widths[i])
                            : fmt::format("{}{:>{}}", gap, row[i], widths[i]);
    }
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}
