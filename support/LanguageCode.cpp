#include "support/LanguageCode.h"

#include <unicode/uloc.h>

#include <array>
#include <map>
#include <string_view>

#include "support/Words.h"

namespace kestrel {

namespace {

/// The codes of libraries (ISO 639-2/B), where they differ from those that follow the language's
/// own name.
const std::map<std::string_view, const char*>& libraryCodes() {
  static const std::map<std::string_view, const char*> kCodes{
      {"alb", "sq"}, {"arm", "hy"}, {"baq", "eu"}, {"bur", "my"}, {"chi", "zh"},
      {"cze", "cs"}, {"dut", "nl"}, {"fre", "fr"}, {"geo", "ka"}, {"ger", "de"},
      {"gre", "el"}, {"ice", "is"}, {"mac", "mk"}, {"mao", "mi"}, {"may", "ms"},
      {"per", "fa"}, {"rum", "ro"}, {"slo", "sk"}, {"tib", "bo"}, {"wel", "cy"}};
  return kCodes;
}

}  // namespace

std::string shortLanguageCode(const std::string& code) {
  const std::string lowered = lowerCased(code);
  if (const auto found = libraryCodes().find(lowered); found != libraryCodes().end())
    return found->second;
  std::array<char, ULOC_LANG_CAPACITY> language{};
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length =
      uloc_getLanguage(lowered.c_str(), language.data(), ULOC_LANG_CAPACITY, &status);
  const bool isCode = U_SUCCESS(status) && (length == 2 || length == 3);
  return isCode ? std::string(language.data(), static_cast<size_t>(length)) : std::string();
}

std::string longLanguageCode(const std::string& code) {
  if (code.size() == 3) return code;
  return uloc_getISO3Language(lowerCased(code).c_str());
}

}  // namespace kestrel
