#include "tools/verbs/Verbs.h"

#include <fmt/format.h>
#include <kestrel/Version.h>

#include <string>

using namespace kestrel;

namespace {

std::string versionText() {
  std::string libraries;
  for (const LibraryVersion& library : libraryVersions())
    libraries +=
        fmt::format("{}{} {}", libraries.empty() ? "" : ", ", library.name, library.version);
  return fmt::format("kestrel {}\n{}\n", version(), libraries);
}

}  // namespace

CommandLine::About aboutProgram() {
  return {
      .program = "kestrel",
      .description = "Looks into media files and converts them.",
      .footer =
          "'kestrel help VERB' explains a verb, 'kestrel version' names the program's.\n\n"
          "Example:\n  kestrel demo bars.mp4\n  kestrel convert bars.mp4 small.mp4 --size 640x-",
      .version = versionText};
}

void addVerbs(CommandLine& line) {
  addInfoVerb(line);
  addConvertVerb(line);
  addJobVerb(line);
  addThumbVerb(line);
  addComposeVerb(line);
  addJoinVerb(line);
  addCutVerb(line);
  addWaveVerb(line);
  addCompareVerb(line);
  addCheckVerb(line);
  addScenesVerb(line);
  addDvdVerb(line);
  addPlayVerb(line);
  addEffectsVerb(line);
  addEncodersVerb(line);
  addPresetsVerb(line);
  addDemoVerb(line);
  addCompleteVerb(line);
}
