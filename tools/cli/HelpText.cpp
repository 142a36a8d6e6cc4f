#include "tools/cli/HelpText.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <string_view>

namespace {

constexpr int kUsualColumns = 80;
constexpr int kFewestColumns = 40;
constexpr int kMostColumns = 100;
constexpr int kNarrow = 64;  // below, texts stand under what they explain

constexpr int kIndent = 2;
constexpr int kTextColumn = 30;       // of what explains an option
constexpr int kNarrowTextColumn = 6;  // where it stands on a line of its own

/// Characters, of which the bytes behind the first begin with the bits 10.
int widthOf(std::string_view text) {
  return static_cast<int>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string blanks(int count) { return std::string(static_cast<size_t>(std::max(count, 0)), ' '); }

/// The text in lines that end at `columns`, each behind so many blanks; the first begins where
/// `column` is already.
std::string filled(const std::string& text, int indent, int columns, int column) {
  std::istringstream words(text);
  std::string lines;
  bool isFirst = true;
  for (std::string word; words >> word;) {
    if (!isFirst && column + 1 + widthOf(word) > columns) {
      lines += "\n" + blanks(indent);
      column = indent;
    } else if (!isFirst) {
      lines += ' ';
      ++column;
    }
    lines += word;
    column += widthOf(word);
    isFirst = false;
  }
  return lines + "\n";
}

/// What is explained, and its text beside it or, where there is no room, below.
std::string entry(const std::string& left, const std::string& text, int textColumn, int columns) {
  const std::string head = blanks(kIndent) + left;
  if (columns < kNarrow)
    return head + "\n" + blanks(kNarrowTextColumn) +
           filled(text, kNarrowTextColumn, columns, kNarrowTextColumn);
  const int gap = textColumn - widthOf(head);
  return head + (gap >= 1 ? blanks(gap) : "\n" + blanks(textColumn)) +
         filled(text, textColumn, columns, textColumn);
}

std::string leftOf(const OptionDescription& option) {
  std::string left =
      option.isArgument() ? option.label : fmt::format("{}", fmt::join(option.names, ","));
  if (!option.value.empty() && option.value != option.label) left += " " + option.value;
  return left;
}

std::string textOf(const OptionDescription& option) {
  return option.text + (option.isRequired && !option.isArgument() ? " (required)" : "");
}

std::string listOf(const std::vector<OptionDescription>& options, int columns) {
  std::string text;
  const auto add = [&](const OptionDescription& option) {
    text += entry(leftOf(option), textOf(option), kTextColumn, columns);
  };
  const auto isArgument = &OptionDescription::isArgument;
  if (std::ranges::any_of(options, isArgument)) text += "\nArguments:\n";
  for (const OptionDescription& option : options)
    if (option.isArgument()) add(option);
  for (const std::string& group : groupsOf(options)) {
    text += fmt::format("\n{}:\n", group);
    for (const OptionDescription& option : options)
      if (!option.isArgument() && option.group == group) add(option);
  }
  return text;
}

std::string footerOf(const std::string& footer, int columns) {
  std::string text;
  for (const auto& paragraph : paragraphsOf(footer)) {
    text += "\n";
    for (const Passage& passage : paragraph)
      text += passage.isVerbatim ? passage.text + "\n" : filled(passage.text, 0, columns, 0);
  }
  return text;
}

std::string usageLine(const std::string& usage, int columns) {
  return filled("Usage: " + usage, kNarrowTextColumn, columns, 0);
}

}  // namespace

std::string helpText(const ProgramDescription& program, int columns) {
  std::string text = filled(program.text, 0, columns, 0) +
                     usageLine(program.name + " [OPTIONS] VERB", columns) +
                     listOf(program.options, columns) + "\nVerbs:\n";
  int longest = 0;
  for (const VerbDescription& verb : program.verbs) longest = std::max(longest, widthOf(verb.name));
  for (const VerbDescription& verb : program.verbs)
    text += entry(verb.name, verb.text, 2 * kIndent + longest, columns);
  return text + footerOf(program.footer, columns);
}

std::string helpText(const ProgramDescription& program, const VerbDescription& verb, int columns) {
  const std::string usage =
      fmt::format("{} {} [OPTIONS] {}", program.name, verb.name, usageOf(verb));
  return filled(verb.text, 0, columns, 0) + usageLine(usage, columns) +
         listOf(verb.options, columns) + footerOf(verb.footer, columns);
}

int helpColumns() {
  int columns = 0;
  if (const char* const wanted = std::getenv("COLUMNS")) {
    const std::string_view text = wanted;
    std::from_chars(text.data(), text.data() + text.size(), columns);
  }
  winsize size{};
  if (columns <= 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) columns = size.ws_col;
  if (columns <= 0) columns = kUsualColumns;
  return std::clamp(columns, kFewestColumns, kMostColumns);
}
