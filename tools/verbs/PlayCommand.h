#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds the verb `play`, which plays a movie's sound, and shows its pictures on the terminal.
void addPlayCommand(CLI::App& app, Run& run);
