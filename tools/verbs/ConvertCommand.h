#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds `convert` to the program's verbs.
void addConvertCommand(CLI::App& app, Run& run);
