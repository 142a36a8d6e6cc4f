#include <fmt/format.h>

#include <string>

#include "tools/shell/Quoted.h"
#include "tools/shell/ShellFiles.h"

namespace {

constexpr char kHead[] = R"(# Completion of {0} in fish, made of the program's own table of options.

# The verb that is typed, and whether it is this one.
function __{0}_verb
    for word in (commandline -opc)[2..]
        if not string match -q -- '-*' $word
            echo $word
            return 0
        end
    end
    return 1
end

function __{0}_is
    test (__{0}_verb; or echo '') = $argv[1]
end

# Offers what the program answers to a question about what is typed.
function __{0}_ask
    set -l words (commandline -opc)
    $words[1] complete $argv[1] -- $words[2..] 2>/dev/null
end

complete -c {0} -f
)";

/// In single quotes, where fish knows \ and '.
std::string quoted(const std::string& text) { return "'" + escaped(text, "\\'") + "'"; }

/// What stands behind -a: words, or a question.
std::string listOf(const std::string& program, const Choices& choices) {
  std::string list = quotedAll(choices.words, [](const auto& word) { return escaped(word, " "); });
  if (!choices.question.empty())
    list += fmt::format("{}(__{}_ask {})", list.empty() ? "" : " ", program, choices.question);
  return list;
}

std::string lineOf(const std::string& program, const std::string& condition,
                   const OptionDescription& option) {
  std::string line = fmt::format("complete -c {} -n {}", program, quoted(condition));
  for (const std::string& name : option.names)
    line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  const bool isPath = option.choices.files || option.choices.folders;
  if (!option.isArgument() && !option.value.empty()) line += isPath ? " -r" : " -x";
  if (isPath) line += " -F";
  std::string list = listOf(program, option.choices);
  if (option.choices.folders) list += "(__fish_complete_directories)";
  if (!list.empty()) line += " -a " + quoted(list);
  if (!option.isArgument()) line += " -d " + quoted(option.text);
  return line + "\n";
}

}  // namespace

std::string fishCompletion(const ProgramDescription& program) {
  std::string text = fmt::format(kHead, program.name);
  const std::string first = fmt::format("not __{}_verb >/dev/null", program.name);
  for (const OptionDescription& option : program.options)
    text += lineOf(program.name, first, option);
  const auto addVerb = [&](const std::string& name, const std::string& what) {
    text += fmt::format("complete -c {} -n {} -a {} -d {}\n", program.name, quoted(first), name,
                        quoted(what));
  };
  for (const VerbDescription& verb : program.verbs) addVerb(verb.name, verb.text);
  addVerb("help", "explain a verb");
  addVerb("version", "name the version");
  for (const VerbDescription& verb : program.verbs) {
    text += fmt::format("complete -c {} -n {} -a {} -d {}\n", program.name,
                        quoted(fmt::format("__{}_is help", program.name)), verb.name,
                        quoted(verb.text));
    for (const OptionDescription& option : verb.options)
      text += lineOf(program.name, fmt::format("__{}_is {}", program.name, verb.name), option);
  }
  return text;
}
