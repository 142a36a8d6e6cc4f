#include <fmt/format.h>

#include <string>
#include <vector>

#include "tools/shell/Quoted.h"
#include "tools/shell/ShellFiles.h"

namespace {

constexpr char kHead[] = R"zsh(#compdef {0}
# Completion of {0} in zsh, made of the program's own table of options.

# Offers what the program answers to a question about what is typed.
_{0}_ask() {{
  local line
  local -a lines values
  lines=("${{(@f)$(${{(Q)typed[1]}} complete $1 -- ${{(Q)typed[2,-1]}} 2>/dev/null)}}")
  for line in $lines; do
    values+=("${{${{line%%$'\t'*}}//:/\\:}}:${{line#*$'\t'}}")
  done
  _describe -t values value values
}}

)zsh";

/// The ways to complete a value: a tag, a message and an action of _arguments. One behind a blank
/// is called as it stands, without what says how matches are grouped.
std::vector<std::string> actionsOf(const std::string& program, const Choices& choices) {
  std::vector<std::string> actions;
  if (!choices.words.empty())
    actions.push_back(fmt::format(
        "values:value:({})",
        quotedAll(choices.words, [](const auto& word) { return escaped(word, ":\\ ()"); })));
  if (!choices.question.empty())
    actions.push_back(fmt::format("asked:value: _{}_ask {}", program, choices.question));
  if (choices.files) actions.emplace_back("files:file:_files");
  if (choices.folders) actions.emplace_back("folders:folder:_files -/");
  return actions;
}

/// "value:action", of several ways all of them.
std::string messageAndAction(const std::string& program, const std::string& label,
                             const Choices& choices) {
  const auto actions = actionsOf(program, choices);
  const std::string message = escaped(label, ":\\[]");
  if (actions.empty()) return message + ": ";
  if (actions.size() == 1) {
    const size_t action = actions[0].find(':', actions[0].find(':') + 1) + 1;
    return message + ":" + actions[0].substr(action);
  }
  std::string all = message + ": _alternative";
  for (const std::string& action : actions) all += " \"" + escaped(action, "\\:\"") + "\"";
  return all;
}

/// What _arguments is told of an option, or of an argument: a word for each of its names.
std::vector<std::string> wordsOf(const std::string& program, const OptionDescription& option) {
  if (option.isArgument())
    return {(option.isRepeatable ? "*:" : ":") +
            messageAndAction(program, option.label, option.choices)};
  std::vector<std::string> words;
  for (const std::string& name : option.names) {
    std::string word;
    if (option.isRepeatable)
      word = "*";
    else if (option.names.size() > 1)
      word = fmt::format("({})", fmt::join(option.names, " "));
    word += name;
    if (!option.value.empty()) word += name.starts_with("--") ? "=" : "+";
    word += "[" + escaped(option.text, "[]\\:") + "]";
    if (!option.value.empty())
      word += ":" + messageAndAction(program, option.value, option.choices);
    words.push_back(word);
  }
  return words;
}

std::string argumentsCall(const std::string& program, const std::vector<OptionDescription>& options,
                          const std::string& indent) {
  std::string call = "_arguments -S";
  for (const OptionDescription& option : options)
    for (const std::string& word : wordsOf(program, option))
      call += " \\\n" + indent + quotedForShell(word);
  return call;
}

}  // namespace

std::string zshCompletion(const ProgramDescription& program) {
  std::string text = fmt::format(kHead, program.name);
  text += fmt::format("_{}() {{\n  local -a typed=($words) verbs=(\n", program.name);
  for (const VerbDescription& verb : program.verbs)
    text += "    " + quotedForShell(verb.name + ":" + escaped(verb.text, ":\\")) + "\n";
  text +=
      "    'help:explain a verb'\n    'version:name the version'\n  )\n"
      "  if (( CURRENT == 2 )); then\n"
      "    if [[ $words[2] == -* ]]; then\n      ";
  text += argumentsCall(program.name, program.options, "        ");
  text +=
      "\n    else\n      _describe verb verbs\n    fi\n    return\n  fi\n"
      "  local verb=$words[2]\n  shift words\n  (( CURRENT-- ))\n  case $verb in\n"
      "    help) _describe verb verbs ;;\n";
  for (const VerbDescription& verb : program.verbs)
    text += fmt::format("    {}) {} ;;\n", verb.name,
                        argumentsCall(program.name, verb.options, "        "));
  return text + fmt::format("  esac\n}}\n\n_{} \"$@\"\n", program.name);
}
