#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds `join` to the program's verbs.
void addJoinCommand(CLI::App& app, Run& run);
