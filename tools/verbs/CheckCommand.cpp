#include <kestrel/convert/Check.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Facts.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

struct Arguments {
  std::vector<std::string> inputs;
  TypedInput source;
  std::optional<double> black, frozen, silence;
  TypedProgress progress;
  bool json = false;
};

constexpr const char* kKinds[] = {"damage", "gap",         "frozen", "black", "silence", "clipping",
                                  "drift",  "interlacing", "range",  "hdr",   "length"};

std::string textOf(const std::string& input, const CheckResult& result) {
  std::string text =
      fmt::format("{}: {}, {} pictures: {}\n", printable(input), timeText(result.length),
                  result.pictures, result.findings.empty() ? "nothing found" : "");
  if (!result.findings.empty()) text.erase(text.size() - 2, 1);
  for (const CheckFinding& finding : result.findings)
    text += fmt::format(
        "  {} {:>9} to {:>9}  {}{}: {}\n", finding.isFault ? '!' : ' ', timeText(finding.start),
        timeText(finding.end), kKinds[static_cast<size_t>(finding.kind)],
        finding.stream ? fmt::format(" #{}", *finding.stream) : "", finding.sentence);
  return text;
}

ordered_json documentOf(const std::string& input, const CheckResult& result) {
  ordered_json json{{"input", input},
                    {"is_whole", result.report.isWhole()},
                    {"duration", seconds(result.length)},
                    {"pictures", result.pictures}};
  auto& findings = json["findings"] = ordered_json::array();
  for (const CheckFinding& finding : result.findings)
    findings.push_back({{"kind", kKinds[static_cast<size_t>(finding.kind)]},
                        {"stream", orNull(finding.stream)},
                        {"start", seconds(finding.start)},
                        {"end", seconds(finding.end)},
                        {"is_fault", finding.isFault},
                        {"sentence", finding.sentence}});
  return json;
}

int run(const Arguments& arguments) {
  auto documents = ordered_json::array();
  int status = kDone;
  for (const std::string& input : arguments.inputs) {
    CheckSettings settings{.input = input};
    settings.black = arguments.black.value_or(settings.black);
    settings.frozen = arguments.frozen.value_or(settings.frozen);
    settings.silence = arguments.silence.value_or(settings.silence);
    settings.title = arguments.source.number();
    settings.angle = arguments.source.angleNumber();
    settings.protocols = arguments.source.protocols.list();
    try {
      ProgressDisplay progress(arguments.progress.style());
      const CheckResult result = check(settings, progress.events());
      progress.finish();
      if (result.report.outcome == Report::Outcome::kInterrupted) return kInterrupted;
      if (arguments.json)
        documents.push_back(documentOf(input, result));
      else
        writeStandardOutput(textOf(input, result));
      if (status == kDone && !result.report.isWhole()) status = kDoneInPart;
    } catch (const Failure& failure) {
      if (arguments.inputs.size() == 1 || failure.kind() == Failure::Kind::kInterrupted) throw;
      say(sentenceOf(failure));
      documents.push_back({{"input", input}, {"error", sentenceOf(failure)}});
      status = statusOf(failure);
    }
  }
  if (arguments.json) writeDocument(arguments.inputs.size() == 1 ? documents.front() : documents);
  return status;
}

}  // namespace

void addCheckVerb(CommandLine& line) {
  Verb verb = line.addVerb("check", "Decode movies whole and tell what is the matter with them");
  verb.footer(
      "What is wrong is marked with '!', and ends with status 3; black, silence and pictures that\n"
      "stand still may be meant.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel check bars.mp4");
  auto arguments = std::make_shared<Arguments>();
  verb.option("inputs", arguments->inputs, "the movies to check").type("INPUT…").required();
  verb.option("--black", arguments->black, "how long pictures are black to be told of (default: 2)")
      .type("SECONDS");
  verb.option("--frozen", arguments->frozen, "how long they stand still (default: 2)")
      .type("SECONDS");
  verb.option("--silence", arguments->silence, "how long sound is silent (default: 2)")
      .type("SECONDS");
  verb.flag("--json", arguments->json, "print one JSON document, of several files an array");
  addInputOptions(verb, arguments->source);
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
