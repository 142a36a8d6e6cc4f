#include <kestrel/convert/MediaInfo.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/InfoText.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct InfoSettings {
  std::vector<std::string> inputs;
  TypedInput source;
  bool asJson = false;
};

/// What the container says of a file and, where it can be read a second time, how its pictures were
/// scanned.
MediaInfo infoOf(const InfoSettings& settings, const std::string& input) {
  const auto title = settings.source.number();
  const int angle = settings.source.angleNumber();
  const Protocols protocols = settings.source.protocols.list();
  MediaInfo info = readMediaInfo(input, title, interrupted, angle, protocols);
  if (info.mainVideo && (title || std::filesystem::is_regular_file(input)))
    info.streams[*info.mainVideo].video.scanning =
        readScanning(input, title, interrupted, angle, protocols);
  return info;
}

int tellOne(const InfoSettings& settings) {
  const std::string& input = settings.inputs.front();
  const MediaInfo info = infoOf(settings, input);
  if (settings.asJson)
    writeDocument(infoDocument(input, info));
  else
    writeStandardOutput(infoText(input, info));
  return kDone;
}

/// Of several files, one that cannot be read leaves the others alone.
int tellAll(const InfoSettings& settings) {
  int status = kDone;
  auto documents = nlohmann::ordered_json::array();
  bool isFirst = true;
  for (const std::string& input : settings.inputs) {
    std::optional<MediaInfo> info;
    try {
      info = infoOf(settings, input);
    } catch (const Failure& failure) {
      if (statusOf(failure) == kInterrupted) throw;
      say(sentenceOf(failure));
      documents.push_back({{"path", input}, {"error", sentenceOf(failure)}});
      status = kFailed;
      continue;
    }
    if (settings.asJson)
      documents.push_back(infoDocument(input, *info));
    else
      writeStandardOutput((isFirst ? "" : "\n") + infoText(input, *info));
    isFirst = false;
  }
  if (settings.asJson) writeDocument(documents);
  return status;
}

}  // namespace

void addInfoVerb(CommandLine& line) {
  const auto settings = std::make_shared<InfoSettings>();
  Verb verb = line.addVerb("info", "Tell what is in media files");
  verb.option("input", settings->inputs, "the files to read").required().type("FILE…");
  addInputOptions(verb, settings->source);
  verb.flag("--json", settings->asJson, "print one JSON document, of several files an array");
  verb.footer("Example:\n  kestrel demo bars.mp4\n  kestrel info bars.mp4");
  verb.runs([settings] {
    return settings->inputs.size() == 1 ? tellOne(*settings) : tellAll(*settings);
  });
}
