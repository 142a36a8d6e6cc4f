#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// `kestrel demo`: makes a short test movie, so that there is something to try the program on.
void addDemoCommand(CLI::App& app, Run& run);
