#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// `kestrel dvd PATH`: what is on a disc.
void addDvdCommand(CLI::App& app, Run& run);
