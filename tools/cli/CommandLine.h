#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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
  explicit Option(CLI::Option& option) : option_(&option) {}

  /// Refuses a command line without it.
  Option& required();

  /// What the help shows in the value's place.
  Option& type(const std::string& name);

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
};

class Verb {
 public:
  Verb(CLI::App& app, Run& chosen) : app_(&app), chosen_(&chosen) {}

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
  CLI::App* app_;
  Run* chosen_;
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

  /// Reads the arguments and answers what they ask for; nothing where that was help or the version,
  /// which is printed; "help VERB" is "VERB --help", "version" is "--version". Throws the `Failure`
  /// of wrong usage.
  Run read(int argc, char** argv);

  /// The verb that was named, once the arguments are read.
  std::optional<Verb> verb();

 private:
  Run readHelp(int argc, char** argv);
  Run readAs(std::string flag, int argc, char** argv);

  const std::unique_ptr<CLI::App> app_;
  Run chosen_;
};
