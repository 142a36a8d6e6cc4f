#include <filesystem>
#include <memory>

#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/OutputFile.h>
#include "tools/drawing/DemoMovie.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

int demo(ConversionSettings settings) {
  // What is wrong with the target shows before the work begins.
  { const OutputFile target(settings.output, settings.replaces); }
  const auto folder = std::filesystem::temp_directory_path();
  // Never committed, so it goes away whatever happens.
  const OutputFile drawn((folder / "kestrel-demo.mkv").string(), true);
  writeDemoMovie(drawn.path());
  settings.input = drawn.path();
  ProgressDisplay progress(ProgressDisplay::Style::kBar);
  return finish(progress, Conversion(settings).run(progress.events()));
}

}  // namespace

void addDemoVerb(CommandLine& line) {
  const auto settings = std::make_shared<ConversionSettings>();
  Verb verb = line.addVerb("demo", "Make a short test movie");
  verb.option("output", settings->output, "the file to write").required().type("FILE");
  verb.flag("--force", settings->replaces, "replace an existing target");
  verb.footer(
      "Draws and sounds ten seconds of colour bars with a running clock, then converts\n"
      "them to the target, whose extension chooses the format.\n\n"
      "Example:\n  kestrel demo bars.mp4");
  verb.runs([settings] { return demo(*settings); });
}
