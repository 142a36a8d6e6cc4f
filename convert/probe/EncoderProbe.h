#pragma once

#include <string>

struct AVCodec;

namespace kestrel {

/// Why an encoder writes nothing here, found by encoding a picture or a moment of silence; "" if it
/// does.
std::string troubleOf(const AVCodec& encoder);

}  // namespace kestrel
