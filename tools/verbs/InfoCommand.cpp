#include "tools/verbs/InfoCommand.h"

#include <kestrel/convert/MediaInfo.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/terminal/ExitStatus.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/StandardOutput.h"
#include "tools/verbs/InfoDocument.h"
#include "tools/verbs/InfoText.h"

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

void addInfoCommand(CLI::App& app, Run& run) {
  const auto settings = std::make_shared<InfoSettings>();
  CLI::App* verb = app.add_subcommand("info", "Tell what is in a media file");
  verb->add_option("input", settings->input, "the file to read")->required()->type_name("FILE");
  verb->add_flag("--json", settings->asJson, "print one JSON document");
  verb->footer("Example:\n  kestrel demo bars.mp4\n  kestrel info bars.mp4");
  verb->callback([&run, settings] { run = [settings] { return info(*settings); }; });
}
