#pragma once

#include <kestrel/convert/LookSettings.h>

#include <functional>

#include "tools/cli/CommandLine.h"

/// Adds the options of the look to a verb. What they were given is read by the function that this
/// answers, which throws the `Failure` of wrong usage where a value is none.
std::function<kestrel::LookSettings()> addLookOptions(Verb verb);
