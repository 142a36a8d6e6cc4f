#include "tools/verbs/DemoCommand.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>

#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/OutputFile.h>
#include "tools/drawing/DemoMovie.h"
#include "tools/terminal/ProgressDisplay.h"

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

void addDemoCommand(CLI::App& app, Run& run) {
  const auto settings = std::make_shared<ConversionSettings>();
  CLI::App* verb = app.add_subcommand("demo", "Make a short test movie");
  verb->add_option("output", settings->output, "the file to write")->required()->type_name("FILE");
  verb->add_flag("--force", settings->replaces, "replace an existing target");
  verb->footer(
      "Draws and sounds ten seconds of colour bars with a running clock, then converts\n"
      "them to the target, whose extension chooses the format.\n\n"
      "Example:\n  kestrel demo bars.mp4");
  verb->callback([&run, settings] { run = [settings] { return demo(*settings); }; });
}
