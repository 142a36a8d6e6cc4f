#include <fcntl.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/Log.h>

#include <fmt/format.h>
#include <unicode/uversion.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/Command.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Say.h"
#include "tools/terminal/StandardOutput.h"
#include "tools/verbs/ComposeCommand.h"
#include "tools/verbs/ConvertCommand.h"
#include "tools/verbs/DemoCommand.h"
#include "tools/verbs/DvdCommand.h"
#include "tools/verbs/EffectsCommand.h"
#include "tools/verbs/InfoCommand.h"
#include "tools/verbs/JoinCommand.h"
#include "tools/verbs/PlayCommand.h"
#include "tools/verbs/ThumbCommand.h"
#include "tools/verbs/WaveCommand.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/version.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace {

std::string versionText() {
  const auto library = [](const char* name, unsigned version) {
    return fmt::format("{} {}.{}.{}, ", name, AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version),
                       AV_VERSION_MICRO(version));
  };
  return "kestrel " KESTREL_VERSION "\n" + library("libavformat", avformat_version()) +
         library("libavcodec", avcodec_version()) +
         library("libavfilter", LIBAVFILTER_VERSION_INT) + library("libavutil", avutil_version()) +
         library("libswscale", swscale_version()) + library("libswresample", swresample_version()) +
         "ICU " U_ICU_VERSION "\n";
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
    return fmt::format("unknown {} '{}'", isOption ? "option" : "argument", extra.front());
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

/// Reads the arguments; empty when they only asked for help or the version, which is printed.
Run chosenRun(CLI::App& app, int argc, char** argv) {
  Run run;
  app.description("Looks into media files and converts them.");
  app.set_help_flag("-h,--help", "explain the usage and exit");
  app.set_version_flag("--version", versionText,
                       "name the version of the program and its libraries");
  app.require_subcommand(1);
  app.footer(
      "'kestrel VERB --help' explains a verb.\n\n"
      "Example:\n  kestrel demo bars.mp4\n  kestrel convert bars.mp4 small.mp4 --size 640x-");
  app.get_formatter()->label("SUBCOMMAND", "VERB");
  addInfoCommand(app, run);
  addConvertCommand(app, run);
  addThumbCommand(app, run);
  addComposeCommand(app, run);
  addJoinCommand(app, run);
  addWaveCommand(app, run);
  addDvdCommand(app, run);
  addPlayCommand(app, run);
  addEffectsCommand(app, run);
  addDemoCommand(app, run);
  for (auto* verb : app.get_subcommands([](const CLI::App*) { return true; })) verb->group("Verbs");

  if (argc > 1 && argv[1][0] != '-' && std::ranges::count(verbs(app), argv[1]) == 0) {
    throw wrongUsage(fmt::format("unknown verb '{}'; the verbs are {}", argv[1], verbList(app)));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    writeStandardOutput(app.help());
    return {};
  } catch (const CLI::CallForVersion& version) {
    writeStandardOutput(version.what());
    return {};
  } catch (const CLI::ParseError& error) {
    throw wrongUsage(sentence(error, app));
  }
  return run;
}

/// Where a standard file is closed, the next file opened would take its number, and messages would
/// end up in it.
void takeClosedStandardFiles() {
  int file = 0;
  do {
    file = open("/dev/null", O_RDONLY);
  } while (file >= 0 && file <= STDERR_FILENO);
  if (file > STDERR_FILENO) close(file);
}

/// Says how a title of a disc is chosen: not every verb can.
int reportDisc(const Failure& failure, const CLI::App& verb) {
  if (verb.get_option_no_throw("--title")) {
    say(fmt::format("{} with --title N or --title main (see 'kestrel {} --help')",
                    sentenceOf(failure), verb.get_name()));
    return kWrongUsage;
  }
  say(sentenceOf(failure) +
      " with 'kestrel convert --title', which makes a file of it; 'kestrel dvd' lists them");
  return kFailed;
}

/// Says what went wrong and answers the exit status.
int report(const Failure& failure, const CLI::App& app) {
  const ExitStatus status = statusOf(failure);
  if (status == kInterrupted) {
    reportInterrupt();
    return status;
  }
  const auto chosen = app.get_subcommands();
  if (failure.subject() == "title") return reportDisc(failure, *chosen.front());
  std::string help;
  if (status == kWrongUsage) {
    help = fmt::format(" (see 'kestrel {}--help')",
                       chosen.empty() ? "" : chosen.front()->get_name() + " ");
  }
  // A reader that went away is no news.
  if (!sentenceOf(failure).empty()) say(sentenceOf(failure) + help);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  takeClosedStandardFiles();
  // A reader that went away and a file that may not grow are failed writes like any other.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  // The program says itself what its user needs to know.
  kestrel::setLogSink([](std::string_view) {});
  kestrel::LMFFMovie::initialize();
  CLI::App app("", "kestrel");
  try {
    watchForInterrupt();
    const Run run = chosenRun(app, argc, argv);
    const int status = run ? run() : kDone;
    if (status == kInterrupted) reportInterrupt();
    return status;
  } catch (const Failure& failure) {
    return report(failure, app);
  } catch (const std::bad_alloc&) {
    return report(failed("not enough memory"), app);
  } catch (const std::exception& error) {
    return report(failed(error.what()), app);
  }
}
