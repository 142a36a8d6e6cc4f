#include <kestrel/convert/MediaInfo.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/terminal/ExitStatus.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/StandardOutput.h"
#include "tools/verbs/InfoDocument.h"
#include "tools/verbs/InfoText.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct InfoSettings {
  std::string input;
  bool asJson = false;
};

int info(const InfoSettings& settings) {
  const auto document =
      infoDocument(settings.input, readMediaInfo(settings.input, std::nullopt, interrupted));
  using nlohmann::ordered_json;
  writeStandardOutput(
      settings.asJson ? document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n"
                      : infoText(document));
  return kDone;
}

}  // namespace

void addInfoVerb(CommandLine& line) {
  const auto settings = std::make_shared<InfoSettings>();
  Verb verb = line.addVerb("info", "Tell what is in a media file");
  verb.option("input", settings->input, "the file to read").required().type("FILE");
  verb.flag("--json", settings->asJson, "print one JSON document");
  verb.footer("Example:\n  kestrel demo bars.mp4\n  kestrel info bars.mp4");
  verb.runs([settings] { return info(*settings); });
}
