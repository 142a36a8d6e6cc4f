// Writes what shells and `man` are given of the command line, when it is built:
//
//     kestrel_shell_files DATE FOLDER
//
// FOLDER gets kestrel.bash, _kestrel, kestrel.fish, and the pages kestrel.1 and kestrel-VERB.1.

#include <kestrel/Version.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tools/cli/CommandLine.h"
#include "tools/shell/ShellFiles.h"
#include "tools/verbs/Verbs.h"

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: kestrel_shell_files DATE FOLDER");
  const ManualEdges edges{.date = argv[1], .version = kestrel::version()};
  const std::filesystem::path folder = argv[2];
  CommandLine line(aboutProgram());
  addVerbs(line);
  const ProgramDescription program = line.describe();
  std::filesystem::create_directories(folder);
  write(folder / (program.name + ".bash"), bashCompletion(program));
  write(folder / ("_" + program.name), zshCompletion(program));
  write(folder / (program.name + ".fish"), fishCompletion(program));
  write(folder / (program.name + ".1"), manualPage(program, edges));
  for (const VerbDescription& verb : program.verbs)
    write(folder / (program.name + "-" + verb.name + ".1"), manualPage(program, verb, edges));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "kestrel_shell_files: %s\n", error.what());
  return 1;
}
