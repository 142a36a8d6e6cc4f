#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "tools/shell/ShellFiles.h"
#include "tools/terminal/Outcome.h"

namespace {

/// A text as it is to be seen, whatever formats it: no character of it means anything else.
std::string roff(std::string_view text) {
  struct Replacement {
    std::string_view seen, written;
  };
  constexpr Replacement kReplacements[] = {{"\\", "\\e"},  {"-", "\\-"},   {"'", "\\(aq"},
                                           {"`", "\\(ga"}, {"^", "\\(ha"}, {"~", "\\(ti"},
                                           {"…", "..."},   {"×", "\\(mu"}};
  std::string written;
  bool isLineBegin = true;
  while (!text.empty()) {
    const auto found = std::ranges::find_if(
        kReplacements, [&](const Replacement& one) { return text.starts_with(one.seen); });
    if (isLineBegin && text.front() == '.') written += "\\&";
    isLineBegin = text.front() == '\n';
    const bool isKnown = found != std::end(kReplacements);
    written += isKnown ? found->written : text.substr(0, 1);
    text.remove_prefix(isKnown ? found->seen.size() : 1);
  }
  return written;
}

std::string bold(std::string_view text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + roff(text) + "\\fR"; }

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

std::string header(const std::string& title, const ProgramDescription& program,
                   const ManualEdges& edges) {
  return fmt::format(".TH {} 1 {} \"{} {}\" \"User Commands\"\n", roff(upper(title)), edges.date,
                     program.name, edges.version);
}

/// The first line of a page: what lists of pages show.
std::string nameSection(const std::string& title, const std::string& text) {
  return fmt::format(".SH NAME\n{} \\- {}\n", roff(title), roff(text));
}

std::string optionEntry(const OptionDescription& option) {
  std::string head;
  for (const std::string& name : option.names) head += (head.empty() ? "" : ", ") + bold(name);
  if (option.isArgument()) head = italic(option.label);
  if (!option.value.empty() && option.value != option.label) head += " " + italic(option.value);
  std::string text = option.text;
  if (option.isRequired && !option.isArgument()) text += " (required)";
  if (option.isRepeatable && !option.isArgument()) text += "; may be given several times";
  std::string offered;
  for (const std::string& word : option.choices.words)
    if (text.find(word) == std::string::npos) offered += (offered.empty() ? "" : ", ") + word;
  if (!offered.empty()) text += "; such as " + offered;
  return fmt::format(".TP\n{}\n{}\n", head, roff(text));
}

std::string optionSections(const std::vector<OptionDescription>& options) {
  std::string text;
  const auto add = [&](const std::string& title, const auto& isOf) {
    std::string entries;
    for (const OptionDescription& option : options)
      if (isOf(option)) entries += optionEntry(option);
    if (!entries.empty()) text += fmt::format(".SH {}\n{}", roff(upper(title)), entries);
  };
  add("Arguments", [](const OptionDescription& option) { return option.isArgument(); });
  for (const std::string& group : groupsOf(options))
    add(group == "Options" ? group : group + " options", [&](const OptionDescription& option) {
      return !option.isArgument() && option.group == group;
    });
  return text;
}

std::string verbatim(const std::string& lines) {
  return ".RS 4\n.nf\n" + roff(lines) + "\n.fi\n.RE\n";
}

/// The paragraphs of a footer: those whose first line is a heading, such as "Example:", are
/// sections of their own, the others the description.
struct Footer {
  std::string description, sections;
};

Footer footerOf(const std::string& footer) {
  Footer parts;
  for (const auto& paragraph : paragraphsOf(footer)) {
    const bool isSection = paragraph.size() > 1 && paragraph[0].text.ends_with(':');
    std::string text;
    for (const Passage& passage : paragraph)
      if (!isSection || &passage != &paragraph.front())
        text += passage.isVerbatim ? verbatim(passage.text) : ".PP\n" + roff(passage.text) + "\n";
    if (isSection) {
      std::string title = paragraph[0].text;
      title.pop_back();
      parts.sections += ".SH " + roff(upper(title)) + "\n" + text;
    } else {
      parts.description += text;
    }
  }
  return parts;
}

std::string descriptionSection(const std::string& text, const std::string& more) {
  return ".SH DESCRIPTION\n" + roff(text) + ".\n" + more;
}

std::string exitStatusSection() {
  struct Row {
    ExitStatus status;
    const char* text;
  };
  constexpr Row kRows[] = {
      {kDone, "all went well"},
      {kFailed, "it failed: an input cannot be read, a target cannot be written"},
      {kWrongUsage, "the command line makes no sense; nothing was done"},
      {kDoneInPart, "a result is there, but the input ended early or was damaged"},
      {kTooLow, "a comparison's score is below what was asked for"},
      {kInterrupted, "it was interrupted"}};
  std::string text = ".SH EXIT STATUS\n";
  for (const auto& [status, what] : kRows)
    text += fmt::format(".TP\n.B {}\n{}\n", static_cast<int>(status), roff(what));
  return text;
}

std::string environmentSection() {
  struct Row {
    const char *name, *text;
  };
  constexpr Row kRows[] = {
      {"COLUMNS", "how wide help is laid out; without it, as wide as the terminal"},
      {"TERM", "a terminal that is called dumb gets no progress bar and no pictures"},
      {"TMPDIR", "the folder for temporary files"},
      {"XDG_CONFIG_HOME",
       "where the folder kestrel/presets with presets of your own lies "
       "(default: ~/.config)"}};
  std::string text = ".SH ENVIRONMENT\n";
  for (const auto& [name, what] : kRows)
    text += fmt::format(".TP\n{}\n{}\n", bold(name), roff(what));
  return text + ".PP\n" +
         roff("Messages, help and lists have no colours, whatever NO_COLOR says.") + "\n";
}

std::string pageOf(const ProgramDescription& program, const VerbDescription& verb) {
  return program.name + "-" + verb.name;
}

}  // namespace

std::string manualPage(const ProgramDescription& program, const ManualEdges& edges) {
  const Footer footer = footerOf(program.footer);
  std::string text =
      header(program.name, program, edges) + nameSection(program.name, program.text) +
      fmt::format(".SH SYNOPSIS\n{} {} [{}...]\n", bold(program.name), italic("VERB"),
                  italic("OPTION")) +
      ".SH DESCRIPTION\n" + roff(program.text) + "\n" + footer.description + ".SH VERBS\n";
  for (const VerbDescription& verb : program.verbs)
    text += fmt::format(".TP\n{}(1)\n{}\n", bold(pageOf(program, verb)), roff(verb.text));
  text += optionSections(program.options) + footer.sections + exitStatusSection() +
          environmentSection() + ".SH SEE ALSO\n";
  for (const VerbDescription& verb : program.verbs)
    text += fmt::format(".BR {} (1),\n", roff(pageOf(program, verb)));
  return text + ".BR libkestrelcode (3)\n";
}

std::string manualPage(const ProgramDescription& program, const VerbDescription& verb,
                       const ManualEdges& edges) {
  const std::string title = pageOf(program, verb);
  const Footer footer = footerOf(verb.footer);
  std::string name = verb.text;
  name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
  return header(title, program, edges) + nameSection(title, name) +
         fmt::format(".SH SYNOPSIS\n{} [{}...] {}\n", bold(program.name + " " + verb.name),
                     italic("OPTION"), italic(usageOf(verb))) +
         descriptionSection(verb.text, footer.description) + optionSections(verb.options) +
         footer.sections + fmt::format(".SH SEE ALSO\n.BR {} (1)\n", roff(program.name));
}
