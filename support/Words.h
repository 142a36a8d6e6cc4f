#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// The text with its ASCII letters in lower case.
std::string lowerCased(std::string_view text);

/// How many bytes the character takes that `text`, which is not empty, starts with; 0 when that is
/// no UTF-8.
size_t utf8Length(std::string_view text);

/// Whether text is UTF-8 throughout.
bool isUtf8(std::string_view text);

/// Rising numbers behind what they number: "title 4", and with neighbours drawn together
/// "titles 1 to 3, 7".
std::string nounAndNumbers(std::string_view noun, const std::vector<int>& numbers);

}  // namespace kestrel
