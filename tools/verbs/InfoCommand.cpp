#include <kestrel/convert/MediaInfo.h>

#include <memory>
#include <optional>
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

int tell(const InfoSettings& settings) {
  const MediaInfo info = readMediaInfo(settings.input, std::nullopt, interrupted);
  writeStandardOutput(settings.asJson ? infoDocument(settings.input, info)
                                      : infoText(settings.input, info));
  return kDone;
}

}  // namespace

void addInfoVerb(CommandLine& line) {
  const auto settings = std::make_shared<InfoSettings>();
  Verb verb = line.addVerb("info", "Tell what is in a media file");
  verb.option("input", settings->input, "the file to read").required().type("FILE");
  verb.flag("--json", settings->asJson, "print one JSON document");
  verb.footer("Example:\n  kestrel demo bars.mp4\n  kestrel info bars.mp4");
  verb.runs([settings] { return tell(*settings); });
}
