#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds `compose` to the program's verbs.
void addComposeCommand(CLI::App& app, Run& run);
