#include "tools/cli/CommandLine.h"

#include <fmt/format.h>
#include <kestrel/convert/Text.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/cli/HelpText.h"
#include "tools/cli/PlainArguments.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"

namespace {

/// What stands in a verb's place and asks for the help of the one behind it, or for the version.
constexpr std::string_view kHelp = "help";
constexpr std::string_view kVersion = "version";

std::vector<const CLI::App*> shownVerbs(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_group().empty(); });
}

std::vector<std::string> verbs(const CLI::App& app) {
  std::vector<std::string> names;
  for (const auto* verb : shownVerbs(app)) names.push_back(verb->get_name());
  return names;
}

/// "info, convert and demo".
std::string verbList(const CLI::App& app) {
  auto names = verbs(app);
  const std::string last = names.back();
  names.pop_back();
  return fmt::format("{} and {}", fmt::join(names, ", "), last);
}

/// The options of the verb that was named.
std::vector<std::string> optionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* verb : app.get_subcommands())
    for (const CLI::Option* option : verb->get_options())
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

/// The first flag that is given a value, as in "--force=no": the parser would take that for one.
std::optional<std::string> flagWithValue(const CLI::App& app, int argc, char** argv) {
  const CLI::App* verb = &app;
  for (const CLI::App* other : app.get_subcommands([](const CLI::App*) { return true; }))
    if (argc > 1 && other->get_name() == argv[1]) verb = other;
  for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
    const std::string argument = argv[i];
    const size_t equals = argument.find('=');
    if (!argument.starts_with("--") || equals == std::string::npos) continue;
    const CLI::Option* option = verb->get_option_no_throw(argument.substr(0, equals));
    if (option && option->get_items_expected_max() == 0) return argument.substr(0, equals);
  }
  return std::nullopt;
}

void parse(CLI::App& app, int argc, char** argv) {
  const auto flag = flagWithValue(app, argc, argv);
  try {
    app.parse(marked(argc, argv));
  } catch (const CLI::ParseError&) {
    if (!flag) throw;
  }
  if (flag) throw wrongUsage(*flag + " takes no value");
}

/// A message of the parser's that starts with `prefix`, without it.
std::optional<std::string> after(std::string_view prefix, const CLI::ParseError& error) {
  const std::string_view text = error.what();
  return text.starts_with(prefix) ? std::optional<std::string>(text.substr(prefix.size()))
                                  : std::nullopt;
}

/// The sentence about wrong arguments, worded as the program's other messages are.
std::string sentence(const CLI::ParseError& error, const CLI::App& app) {
  const auto extra = app.remaining(true);
  if (!extra.empty()) {
    const bool isOption = extra.front().size() > 1 && extra.front().front() == '-';
    if (!isOption) return fmt::format("unknown argument '{}'", withoutMark(extra.front()));
    const std::string typed = extra.front().substr(0, extra.front().find('='));
    return fmt::format("unknown option '{}'{}", typed,
                       kestrel::nearestNames(typed, optionNames(app)));
  }
  if (app.get_subcommands().empty()) return "a verb is missing; the verbs are " + verbList(app);
  if (const auto value = after("Could not convert: ", error)) {
    const size_t equals = value->find(" = ");
    if (equals == std::string::npos) return *value;
    return fmt::format("{}: '{}' is not a number", value->substr(0, equals),
                       value->substr(equals + 3));
  }
  const std::string text = error.what();
  const bool lacksValue = error.get_name() == "ArgumentMismatch" && text.ends_with(" missing");
  const bool hasTwoValues = text.find("At Most 1 required") != std::string::npos;
  if (!lacksValue && !hasTwoValues) return text;
  return text.substr(0, text.find(':')) +
         (lacksValue ? ": the value is missing" : " is given more than once");
}

/// Refuses a name that is no verb's, with what it may have meant.
void requireVerb(const CLI::App& app, const std::string& name) {
  const auto isNamed = [&](const CLI::App* verb) { return verb->get_name() == name; };
  if (!app.get_subcommands(isNamed).empty()) return;
  const auto names = verbs(app);
  std::error_code ignored;
  if (std::filesystem::exists(name, ignored))
    throw wrongUsage(fmt::format("'{0}' is a file, and a verb comes first, as in '{1} info {0}'",
                                 name, app.get_name()));
  const std::string near = kestrel::nearestNames(name, names);
  throw wrongUsage(fmt::format("unknown verb '{}'{}", name,
                               near.empty() ? "; the verbs are " + verbList(app) : near));
}

OptionDescription describe(const CLI::Option& option, const Choices& choices) {
  OptionDescription description{.text = option.get_description(),
                                .group = option.get_group(),
                                .isRequired = option.get_required(),
                                .choices = choices};
  for (const std::string& name : option.get_snames()) description.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) description.names.push_back("--" + name);
  if (description.names.empty()) description.label = option.get_name(true);
  if (option.get_items_expected_max() == 0) return description;
  description.value = option.get_type_name();
  description.isRepeatable = option.get_items_expected_max() > 1 ||
                             option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  // The parser's own words for types say nothing to users.
  if (description.value == "TEXT") description.value = description.isArgument() ? "" : "VALUE";
  const auto isCalled = [&](std::string_view name) { return description.value.starts_with(name); };
  description.choices.files |=
      isCalled("FILE") || isCalled("INPUT") || isCalled("PATH") || isCalled("NAME|FILE");
  description.choices.folders |= isCalled("DIR");
  return description;
}

bool isWholeBetween(std::string_view text, int low, int high) {
  if (text.starts_with('+')) text.remove_prefix(1);
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size() && number >= low &&
         number <= high;
}

}  // namespace

Option& Option::required() {
  option_->required();
  return *this;
}

Option& Option::type(const std::string& name) {
  option_->type_name(name);
  return *this;
}

Option& Option::words(std::vector<std::string> words) {
  choices_->words = std::move(words);
  return *this;
}

Option& Option::asks(const std::string& question) {
  choices_->question = question;
  return *this;
}

Option& Option::offers(const Choices& choices) {
  *choices_ = choices;
  return *this;
}

Option& Option::notEmpty() {
  option_->check(CLI::Validator(
      [](const std::string& text) { return text.empty() ? "the value is empty" : ""; }, ""));
  return *this;
}

Option& Option::within(int low, int high) {
  option_->check(CLI::Validator(
      [=](const std::string& text) {
        return isWholeBetween(text, low, high)
                   ? ""
                   : fmt::format("'{}' is not a whole number from {} to {}", text, low, high);
      },
      ""));
  option_->description(fmt::format("{}, from {} to {}", option_->get_description(), low, high));
  return *this;
}

Option& Option::repeatable() {
  option_->expected(1)->allow_extra_args(false)->multi_option_policy(
      CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

bool Option::isGiven() const { return option_->count() > 0; }

std::string Option::name() const { return option_->get_name(); }

const std::string& Option::group() const { return option_->get_group(); }

namespace {

/// Behind "--" there are arguments alone.
CLI::Validator notPlain() {
  return {[](const std::string& given) { return isPlain(given) ? "the value is missing" : ""; },
          ""};
}

}  // namespace

Option Verb::handle(CLI::Option& option) const { return {option, state_->choices[&option]}; }

template <typename Value>
Option Verb::option(const std::string& name, Value& value, const std::string& text) {
  CLI::Option* option = app_->add_option(name, value, text);
  if (name.starts_with('-'))
    option->check(notPlain());
  else
    option->transform(CLI::Validator(
        [](std::string& given) {
          given = withoutMark(given);
          return std::string();
        },
        ""));
  return handle(*option);
}

template Option Verb::option(const std::string&, std::string&, const std::string&);
template Option Verb::option(const std::string&, std::vector<std::string>&, const std::string&);
template Option Verb::option(const std::string&, float&, const std::string&);
template Option Verb::option(const std::string&, double&, const std::string&);
template Option Verb::option(const std::string&, std::optional<int>&, const std::string&);
template Option Verb::option(const std::string&, std::optional<float>&, const std::string&);
template Option Verb::option(const std::string&, std::optional<double>&, const std::string&);

Option Verb::option(const std::string& name, const std::string& text) {
  CLI::Option* const option = app_->add_option(name, CLI::callback_t(), text);
  option->check(notPlain());
  return handle(*option);
}

Option Verb::flag(const std::string& name, const std::string& text) {
  return handle(*app_->add_flag(name, text));
}

Option Verb::flag(const std::string& name, bool& value, const std::string& text) {
  return handle(*app_->add_flag(name, value, text));
}

void Verb::group(const std::string& heading) { app_->option_defaults()->group(heading); }

void Verb::footer(const std::string& text) { app_->footer(text); }

void Verb::runs(Run run) {
  app_->callback([state = state_, run = std::move(run)] { state->chosen = run; });
}

const std::string& Verb::name() const { return app_->get_name(); }

bool Verb::hasOption(const std::string& name) const {
  return app_->get_option_no_throw(name) != nullptr;
}

bool Verb::isGiven(const std::string& name) const { return app_->count(name) > 0; }

std::vector<Verb::Given> Verb::given() const {
  std::vector<Given> all;
  for (const CLI::Option* option : app_->get_options())
    if (option->count() > 0 && !option->get_lnames().empty())
      all.push_back({option->get_lnames().front(), option->results()});
  return all;
}

std::vector<Option> Verb::options() const {
  std::vector<Option> options;
  for (CLI::Option* option : app_->get_options([](const CLI::Option*) { return true; }))
    options.push_back(handle(*option));
  return options;
}

CommandLine::CommandLine(const About& about)
    : app_(std::make_unique<CLI::App>(about.description, about.program)) {
  app_->set_help_flag("-h,--help", "explain the usage and exit");
  app_->set_version_flag("-V,--version", about.version,
                         "name the version of the program and its libraries");
  app_->require_subcommand(1);
  app_->footer(about.footer);
}

CommandLine::~CommandLine() = default;

Verb CommandLine::addVerb(const std::string& name, const std::string& description) {
  return {*app_->add_subcommand(name, description)->group("Verbs"), state_};
}

Verb CommandLine::addHiddenVerb(const std::string& name) {
  return {*app_->add_subcommand(name)->group(""), state_};
}

ProgramDescription CommandLine::describe() const {
  const auto optionsOf = [this](const CLI::App& app) {
    std::vector<OptionDescription> options;
    for (const CLI::Option* option : app.get_options()) {
      const auto choices = state_.choices.find(option);
      options.push_back(
          ::describe(*option, choices == state_.choices.end() ? Choices() : choices->second));
    }
    return options;
  };
  ProgramDescription program{.name = app_->get_name(),
                             .text = app_->get_description(),
                             .footer = app_->get_footer(),
                             .options = optionsOf(*app_)};
  for (const CLI::App* verb : shownVerbs(*app_))
    program.verbs.push_back({.name = verb->get_name(),
                             .text = verb->get_description(),
                             .footer = verb->get_footer(),
                             .options = optionsOf(*verb)});
  return program;
}

/// The help of the verb that was named, or of the program.
std::string CommandLine::help() const {
  const ProgramDescription program = describe();
  const auto named = app_->get_subcommands();
  const auto verb =
      std::ranges::find(program.verbs, named.empty() ? std::string() : named.front()->get_name(),
                        &VerbDescription::name);
  return verb == program.verbs.end() ? helpText(program, helpColumns())
                                     : helpText(program, *verb, helpColumns());
}

Run CommandLine::read(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == kHelp) return readHelp(argc, argv);
  if (argc > 1 && std::string_view(argv[1]) == kVersion) return readAs("--version", argc, argv);
  if (argc > 1 && argv[1][0] != '-') requireVerb(*app_, argv[1]);
  try {
    parse(*app_, argc, argv);
  } catch (const CLI::CallForHelp&) {
    writeStandardOutput(help());
    return {};
  } catch (const CLI::CallForVersion& version) {
    writeStandardOutput(version.what());
    return {};
  } catch (const CLI::ParseError& error) {
    throw wrongUsage(sentence(error, *app_));
  }
  return state_.chosen;
}

Run CommandLine::readHelp(int argc, char** argv) {
  if (argc > 3) throw wrongUsage(fmt::format("unknown argument '{}'", argv[3]));
  std::string flag = "--help";
  std::vector<char*> arguments{argv[0]};
  if (argc > 2) arguments.push_back(argv[2]);
  arguments.push_back(flag.data());
  return read(static_cast<int>(arguments.size()), arguments.data());
}

/// A word in a verb's place as the flag that it stands for.
Run CommandLine::readAs(std::string flag, int argc, char** argv) {
  if (argc > 2) throw wrongUsage(fmt::format("unknown argument '{}'", argv[2]));
  std::array<char*, 2> arguments{argv[0], flag.data()};
  return read(static_cast<int>(arguments.size()), arguments.data());
}

std::optional<Verb> CommandLine::verb() {
  const auto chosen = app_->get_subcommands();
  if (chosen.empty()) return std::nullopt;
  return Verb(*chosen.front(), state_);
}
