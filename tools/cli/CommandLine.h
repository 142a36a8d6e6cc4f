#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/Description.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

/// The program's arguments: verbs, each with options of its own, of which one is chosen. The parser
/// behind it is seen by nobody else.
///
/// `Verb` and `Option` are handles, cheap to copy and valid as long as their `CommandLine`.

/// What a verb does once its options are read; answers the exit status and throws `Failure`.
using Run = std::function<int()>;

/// One option of a verb ("--size"), or one of its arguments, whose name has no dashes.
class Option {
 public:
  Option(CLI::Option& option, Choices& choices) : option_(&option), choices_(&choices) {}

  /// Refuses a command line without it.
  Option& required();

  /// What the help shows in the value's place. Shells offer files where its name begins with FILE,
  /// INPUT or PATH, and folders where it begins with DIR.
  Option& type(const std::string& name);

  /// What shells offer in the value's place.
  Option& words(std::vector<std::string> words);
  /// The same, by what `kestrel complete` answers to a question.
  Option& asks(const std::string& question);
  Option& offers(const Choices& choices);

  /// Refuses an empty value, such as that of a script's variable that is not set.
  Option& notEmpty();

  /// Refuses what is no whole number from `low` to `high`; the help tells the range behind the
  /// option's text.
  Option& within(int low, int high);

  /// It may be given more than once, each time with one value.
  Option& repeatable();

  bool isGiven() const;
  std::string name() const;
  const std::string& group() const;

 private:
  CLI::Option* option_;
  Choices* choices_;
};

/// What a command line keeps beside the parser.
struct CommandLineState {
  Run chosen;
  std::map<const CLI::Option*, Choices> choices;
};

class Verb {
 public:
  Verb(CLI::App& app, CommandLineState& state) : app_(&app), state_(&state) {}

  /// Adds an option whose value goes to `value`, which lives as long as the command line: a text, a
  /// list of texts, a `float` or `double`, or an `int`, `float` or `double` that may be absent.
  template <typename Value>
  Option option(const std::string& name, Value& value, const std::string& text);

  /// Adds an option whose values `given` answers alone.
  Option option(const std::string& name, const std::string& text);

  /// Adds an option without a value.
  Option flag(const std::string& name, bool& value, const std::string& text);
  /// One that `given` answers alone, with "true".
  Option flag(const std::string& name, const std::string& text);

  /// The heading in the help of the options that are added from now on.
  void group(const std::string& heading);

  /// What the help ends with.
  void footer(const std::string& text);

  /// What it does where it is chosen.
  void runs(Run run);

  const std::string& name() const;
  bool hasOption(const std::string& name) const;
  /// Of an option that it has.
  bool isGiven(const std::string& name) const;

  /// An option that was typed: its long name without the dashes, and its values.
  struct Given {
    std::string name;
    std::vector<std::string> values;
  };
  std::vector<Given> given() const;

  /// All options, and the arguments.
  std::vector<Option> options() const;

 private:
  Option handle(CLI::Option& option) const;

  CLI::App* app_;
  CommandLineState* state_;
};

class CommandLine {
 public:
  struct About {
    std::string program, description, footer;
    std::function<std::string()> version;
  };

  explicit CommandLine(const About& about);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  Verb addVerb(const std::string& name, const std::string& description);

  /// One that no help tells of.
  Verb addHiddenVerb(const std::string& name);

  /// All that help tells of.
  ProgramDescription describe() const;

  /// Reads the arguments and answers what they ask for; nothing where that was help or the version,
  /// which is printed; "help VERB" is "VERB --help", "version" is "--version". Throws the `Failure`
  /// of wrong usage.
  Run read(int argc, char** argv);

  /// The verb that was named, once the arguments are read.
  std::optional<Verb> verb();

 private:
  std::string help() const;
  Run readHelp(int argc, char** argv);
  Run readAs(std::string flag, int argc, char** argv);

  const std::unique_ptr<CLI::App> app_;
  CommandLineState state_;
};
