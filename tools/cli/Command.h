#pragma once

#include <functional>

/// What the chosen verb does with its options; answers the exit status and throws `Failure`. Each
/// verb's `add…Command` puts its own here when the arguments name that verb.
using Run = std::function<int()>;
