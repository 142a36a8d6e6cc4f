#include <fcntl.h>
#include <fmt/format.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/Log.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "tools/cli/CommandLine.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

/// Where a standard file is closed, the next file opened would take its number, and messages would
/// end up in it.
void takeClosedStandardFiles() {
  int file = 0;
  do {
    file = open("/dev/null", O_RDONLY);
  } while (file >= 0 && file <= STDERR_FILENO);
  if (file > STDERR_FILENO) close(file);
}

/// Says how a title of a disc is chosen: by an option or, where there are several inputs, behind
/// each one's name.
int reportDisc(const Failure& failure, const Verb& verb) {
  const char* const how = verb.hasOption("--title") ? "with --title N or --title main"
                                                    : "by '#N' or '#main' behind its name";
  say(fmt::format("{} {} (see 'kestrel {} --help')", sentenceOf(failure), how, verb.name()));
  return kWrongUsage;
}

/// The sentence of a failure, behind the option that it is about where it does not name that
/// itself.
std::string sentenceFor(const Failure& failure, const std::optional<Verb>& verb) {
  const std::string sentence = sentenceOf(failure);
  if (failure.kind() != Failure::Kind::kSettings || failure.subject().empty()) return sentence;
  const std::string option = optionOf(failure.subject());
  const bool isUnnamed =
      verb && verb->hasOption(option) && sentence.find(option) == std::string::npos;
  return isUnnamed ? option + ": " + sentence : sentence;
}

/// Says what went wrong and answers the exit status.
int report(const Failure& failure, const std::optional<Verb>& verb) {
  const ExitStatus status = statusOf(failure);
  if (status == kInterrupted) {
    reportInterrupt();
    return status;
  }
  const bool lacksTitle =
      verb && failure.subject() == "title" && sentenceOf(failure).ends_with("choose a title of it");
  if (lacksTitle) return reportDisc(failure, *verb);
  std::string help;
  if (failure.subject() == "effect") {
    help = " ('kestrel effects' lists them)";
  } else if (status == kWrongUsage) {
    help = fmt::format(" (see 'kestrel {}--help')", verb ? verb->name() + " " : "");
  }
  const std::string sentence = sentenceFor(failure, verb);
  if (!sentence.empty()) say(sentence + help);  // a reader that went away is no news
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  takeClosedStandardFiles();
  // A reader that went away and a file that may not grow are failed writes like any other.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  // The program says itself what its user needs to know.
  setLogSink([](std::string_view) {});
  // One of the encoders writes its settings to standard error, unless this asks for errors alone.
  setenv("SVT_LOG", "1", 0);
  LMFFMovie::initialize();
  CommandLine line(aboutProgram());
  try {
    watchForInterrupt();
    addVerbs(line);
    const Run run = line.read(argc, argv);
    const int status = run ? run() : kDone;
    if (status == kInterrupted) reportInterrupt();
    return status;
  } catch (const Failure& failure) {
    return report(failure, line.verb());
  } catch (const std::bad_alloc&) {
    return report(failed("not enough memory"), line.verb());
  } catch (const std::exception& error) {
    return report(failed(error.what()), line.verb());
  }
}
