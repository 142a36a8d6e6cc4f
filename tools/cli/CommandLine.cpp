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

#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"

namespace {

/// What the parser gets in front of each argument behind "--", so that it takes none of them for an
/// option or a verb.
constexpr char kPlain = '\x1F';

/// What stands in a verb's place and asks for the help of the one behind it, or for the version.
constexpr std::string_view kHelp = "help";
constexpr std::string_view kVersion = "version";

bool isPlain(std::string_view argument) { return argument.starts_with(kPlain); }

std::string withoutMark(const std::string& argument) {
  return isPlain(argument) ? argument.substr(1) : argument;
}

/// The arguments behind the program's name, last one first, as the parser takes them.
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

std::vector<std::string> verbs(const CLI::App& app) {
  std::vector<std::string> names;
  for (const auto* verb : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(verb->get_name());
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
  const auto names = verbs(app);
  if (std::ranges::count(names, name) > 0) return;
  std::error_code ignored;
  if (std::filesystem::exists(name, ignored))
    throw wrongUsage(fmt::format("'{0}' is a file, and a verb comes first, as in '{1} info {0}'",
                                 name, app.get_name()));
  const std::string near = kestrel::nearestNames(name, names);
  throw wrongUsage(fmt::format("unknown verb '{}'{}", name,
                               near.empty() ? "; the verbs are " + verbList(app) : near));
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
  return Option(*option);
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
  return Option(*option);
}

Option Verb::flag(const std::string& name, const std::string& text) {
  return Option(*app_->add_flag(name, text));
}

Option Verb::flag(const std::string& name, bool& value, const std::string& text) {
  return Option(*app_->add_flag(name, value, text));
}

void Verb::group(const std::string& heading) { app_->option_defaults()->group(heading); }

void Verb::footer(const std::string& text) { app_->footer(text); }

void Verb::runs(Run run) {
  app_->callback([chosen = chosen_, run = std::move(run)] { *chosen = run; });
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
    options.emplace_back(*option);
  return options;
}

CommandLine::CommandLine(const About& about)
    : app_(std::make_unique<CLI::App>(about.description, about.program)) {
  app_->set_help_flag("-h,--help", "explain the usage and exit");
  app_->set_version_flag("-V,--version", about.version,
                         "name the version of the program and its libraries");
  app_->require_subcommand(1);
  app_->footer(about.footer);
  app_->get_formatter()->label("SUBCOMMAND", "VERB");
}

CommandLine::~CommandLine() = default;

Verb CommandLine::addVerb(const std::string& name, const std::string& description) {
  return {*app_->add_subcommand(name, description)->group("Verbs"), chosen_};
}

Run CommandLine::read(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == kHelp) return readHelp(argc, argv);
  if (argc > 1 && std::string_view(argv[1]) == kVersion) return readAs("--version", argc, argv);
  if (argc > 1 && argv[1][0] != '-') requireVerb(*app_, argv[1]);
  try {
    parse(*app_, argc, argv);
  } catch (const CLI::CallForHelp&) {
    writeStandardOutput(app_->help());
    return {};
  } catch (const CLI::CallForVersion& version) {
    writeStandardOutput(version.what());
    return {};
  } catch (const CLI::ParseError& error) {
    throw wrongUsage(sentence(error, *app_));
  }
  return chosen_;
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
  return Verb(*chosen.front(), chosen_);
}
