#pragma once

#include <string>

struct AVStream;

namespace kestrel {

/// The language code that a stream is tagged with; "" when it has none, or that of an unknown one.
std::string languageOf(const AVStream& stream);

/// Whether two codes mean the same language ("fre", "fra" and "fr" do).
bool isSameLanguage(const std::string& code, const std::string& other);

}  // namespace kestrel
