#pragma once

#include <functional>

/// What `main` of a helper program does around its work: prepares the library and signals, says
/// what went wrong, and answers the exit status.
int runWorker(const std::function<int()>& work);
