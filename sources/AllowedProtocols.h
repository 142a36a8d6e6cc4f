#pragma once

#include <kestrel/Protocols.h>

#include <string>

namespace kestrel {

/// Whether a name of which `protocolOf` says `protocol` may be read.
bool isAllowed(const std::string& protocol, const Protocols& allowed);

/// Whether what a protocol reads are files; "" is a file itself.
bool readsFiles(const std::string& protocol);

/// What libavformat may read an input by, and all that the input names itself, as its option
/// "protocol_whitelist" takes it.
std::string whitelistOf(const Protocols& allowed, bool isMadeOfFiles);

}  // namespace kestrel
