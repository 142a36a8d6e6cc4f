#pragma once

#include <kestrel/Error.h>

namespace kestrel {

/// The error for a negative library code, with the library's own text.
Error libraryError(int code);

/// The error for a negative library code, with a text of the engine's own.
Error engineError(int code, std::string message);

}  // namespace kestrel
