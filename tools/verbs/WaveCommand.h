#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds `wave` to the program's verbs.
void addWaveCommand(CLI::App& app, Run& run);
