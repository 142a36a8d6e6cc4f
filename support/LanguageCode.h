#pragma once

#include <string>

namespace kestrel {

/// The shortest code of a language, as addresses and players of the web take it (RFC 5646): "fr"
/// for "fra" and "fre"; three letters where there are no two. "" for what is no code of a language.
std::string shortLanguageCode(const std::string& code);

/// The code of three letters, as most containers hold it (ISO 639-2): "eng" for "en-GB". One of
/// three letters stays as it is. "" for what is no code of a language.
std::string longLanguageCode(const std::string& code);

}  // namespace kestrel
