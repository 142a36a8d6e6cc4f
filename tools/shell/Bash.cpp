#include <fmt/format.h>

#include <string>
#include <vector>

#include "tools/shell/Quoted.h"
#include "tools/shell/ShellFiles.h"

namespace {

constexpr char kHead[] = R"(# Completion of {0} in bash, made of the program's own table of options.

# Offers those of the words that begin with what is typed.
_{0}_offer() {{
  local word
  for word in "$@"; do
    [[ $word == "$cur"* ]] || continue
    [[ $word != *[[:space:]]* ]] || printf -v word %q "$word"
    COMPREPLY+=("$word")
  done
}}

# Offers what the program answers to a question about what is typed.
_{0}_ask() {{
  local value rest
  local -a values=()
  while IFS=$'\t' read -r value rest; do values+=("$value"); done \
    < <("${{words[0]/#\~/$HOME}}" complete "$1" -- "${{words[@]:1}}" 2>/dev/null)
  _{0}_offer "${{values[@]}}"
}}

_{0}_paths() {{
  local -a paths
  mapfile -t paths < <(compgen "$1" -- "$cur")
  compopt -o filenames 2>/dev/null
  COMPREPLY+=("${{paths[@]}}")
}}

_{0}_files() {{ _{0}_paths -f; }}
_{0}_folders() {{ _{0}_paths -d; }}

_{0}() {{
  local cur prev cword verb='' i
  local -a words
  COMPREPLY=()
  if declare -F _get_comp_words_by_ref >/dev/null; then
    _get_comp_words_by_ref -n : cur prev words cword
  else
    words=("${{COMP_WORDS[@]}}") cword=$COMP_CWORD
    cur=${{words[cword]}} prev=${{words[cword - 1]}}
  fi
  if [[ $cur == = ]]; then
    cur=''
  elif [[ $prev == = ]]; then
    prev=${{words[cword - 2]}}
  fi
  for ((i = 1; i < cword; ++i)); do
    if [[ ${{words[i]}} != -* ]]; then
      verb=${{words[i]}}
      break
    fi
  done
  _{0}_values
  if declare -F __ltrim_colon_completions >/dev/null; then __ltrim_colon_completions "$cur"; fi
}}

)";

std::string offers(const std::string& program, const Choices& choices) {
  std::vector<std::string> calls;
  if (!choices.words.empty())
    calls.push_back(fmt::format("_{}_offer {}", program, quotedAll(choices.words, quotedForShell)));
  if (!choices.question.empty())
    calls.push_back(fmt::format("_{}_ask {}", program, choices.question));
  if (choices.files) calls.push_back(fmt::format("_{}_files", program));
  if (choices.folders) calls.push_back(fmt::format("_{}_folders", program));
  return fmt::format("{}", fmt::join(calls, "; "));
}

std::vector<std::string> namesOf(const std::vector<OptionDescription>& options) {
  std::vector<std::string> names;
  for (const OptionDescription& option : options)
    names.insert(names.end(), option.names.begin(), option.names.end());
  return names;
}

/// The case of one option's value.
std::string valueCase(const std::string& program, const std::string& verb,
                      const OptionDescription& option) {
  std::vector<std::string> patterns;
  for (const std::string& name : option.names)
    patterns.push_back(fmt::format("'{} {}'", verb, name));
  const std::string offered = offers(program, option.choices);
  return fmt::format("    {}) {}; return ;;\n", fmt::join(patterns, " | "),
                     offered.empty() ? ":" : offered);
}

/// The case of what stands for itself: an option, or an argument.
std::string otherCase(const std::string& program, const VerbDescription& verb) {
  Choices arguments;
  for (const OptionDescription& option : verb.options) {
    if (!option.isArgument()) continue;
    arguments.files |= option.choices.files;
    if (!option.choices.question.empty()) arguments.question = option.choices.question;
  }
  const std::string offered = offers(program, arguments);
  return fmt::format("    {}:-*) _{}_offer {} ;;\n    {}:*) {} ;;\n", verb.name, program,
                     quotedAll(namesOf(verb.options), quotedForShell), verb.name,
                     offered.empty() ? ":" : offered);
}

}  // namespace

std::string bashCompletion(const ProgramDescription& program) {
  std::string values;
  std::string others;
  std::vector<std::string> verbs;
  for (const VerbDescription& verb : program.verbs) {
    verbs.push_back(verb.name);
    for (const OptionDescription& option : verb.options)
      if (!option.isArgument() && !option.value.empty())
        values += valueCase(program.name, verb.name, option);
    others += otherCase(program.name, verb);
  }
  const std::string verbWords = quotedAll(verbs, quotedForShell);
  return fmt::format(kHead, program.name) +
         fmt::format(
             "_{0}_values() {{\n  case \"$verb $prev\" in\n{1}  esac\n"
             "  case $verb:$cur in\n    :-*) _{0}_offer {2} ;;\n"
             "    :*) _{0}_offer {3} help version ;;\n    help:*) _{0}_offer {3} ;;\n{4}"
             "  esac\n}}\n\ncomplete -F _{0} {0}\n",
             program.name, values, quotedAll(namesOf(program.options), quotedForShell), verbWords,
             others);
}
