#pragma once

#include <string>

namespace kestrel {

/// The shortest code of a language, as addresses and players of the web take it (RFC 5646): "fr"
/// for "fra" and "fre"; three letters where there are no two. "" for what is no code of a language.
std::string shortLanguageCode(const std::string& code);

}  // namespace kestrel
