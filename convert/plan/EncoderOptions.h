#pragma once

#include <map>
#include <string>

struct AVCodec;

namespace kestrel {

/// Refuses the first of the options that an encoder does not have, or whose value it does not take,
/// with what it takes: a `Failure` of the kind `kSettings` about `setting`. What an encoder finds
/// out only once it is opened is left to it.
void requireEncoderOptions(const std::string& setting, const AVCodec& encoder,
                           const std::map<std::string, std::string>& options);

}  // namespace kestrel
