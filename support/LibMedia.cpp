#include <kestrel/LibMedia.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <array>

namespace kestrel {

namespace {

/// More than any code or name has.
constexpr int32_t kCapacity = 256;

/// True for codes that stand for no language at all, such as "und" and "".
bool isUndetermined(const std::string& code) {
  std::array<char, kCapacity> language;
  UErrorCode status = U_ZERO_ERROR;
  return uloc_getLanguage(code.c_str(), language.data(), kCapacity, &status) == 0;
}

/// The name of a language in the current locale, "" when the locale has none.
std::string displayName(const std::string& code) {
  if (isUndetermined(code)) return {};
  std::array<UChar, kCapacity> name;
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length =
      uloc_getDisplayLanguage(code.c_str(), uloc_getDefault(), name.data(), kCapacity, &status);
  // The warning says that the name is the code again, for want of one.
  if (U_FAILURE(status) || status == U_USING_DEFAULT_WARNING) return {};

  std::array<char, 3 * kCapacity> text;
  int32_t textLength = 0;
  u_strToUTF8(text.data(), 3 * kCapacity, &textLength, name.data(), length, &status);
  if (U_FAILURE(status)) return {};
  return {text.data(), static_cast<size_t>(textLength)};
}

}  // namespace

std::string LibMedia::displayStringForLanguage(const std::string& code) {
  std::string name = displayName(code);
  if (name.empty() && code.size() >= 3) name = displayName(code.substr(0, 2));
  if (name.empty()) name = displayName("en");
  return name.empty() ? code : name;
}

}  // namespace kestrel
