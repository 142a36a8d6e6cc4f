#include "support/Entities.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include "platform/text/Utf8.h"

namespace kestrel {

namespace {

/// The names of U+00A0 to U+00FF, in this order.
constexpr std::array<std::string_view, 96> kLatin1 = {
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",
    "copy",   "ordf",   "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn",
    "sup2",   "sup3",   "acute",  "micro",  "para",   "middot", "cedil",  "sup1",   "ordm",
    "raquo",  "frac14", "frac12", "frac34", "iquest", "Agrave", "Aacute", "Acirc",  "Atilde",
    "Auml",   "Aring",  "AElig",  "Ccedil", "Egrave", "Eacute", "Ecirc",  "Euml",   "Igrave",
    "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde", "Ograve", "Oacute", "Ocirc",  "Otilde",
    "Ouml",   "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",  "Uuml",   "Yacute", "THORN",
    "szlig",  "agrave", "aacute", "acirc",  "atilde", "auml",   "aring",  "aelig",  "ccedil",
    "egrave", "eacute", "ecirc",  "euml",   "igrave", "iacute", "icirc",  "iuml",   "eth",
    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide", "oslash", "ugrave",
    "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml"};
constexpr uint32_t kFirstOfLatin1 = 0xA0;

constexpr std::array<std::pair<std::string_view, uint32_t>, 29> kOthers = {{
    {"amp", '&'},      {"lt", '<'},        {"gt", '>'},        {"quot", '"'},
    {"apos", '\''},    {"hellip", 0x2026}, {"ndash", 0x2013},  {"mdash", 0x2014},
    {"lsquo", 0x2018}, {"rsquo", 0x2019},  {"sbquo", 0x201A},  {"ldquo", 0x201C},
    {"rdquo", 0x201D}, {"bdquo", 0x201E},  {"lsaquo", 0x2039}, {"rsaquo", 0x203A},
    {"bull", 0x2022},  {"euro", 0x20AC},   {"trade", 0x2122},  {"OElig", 0x152},
    {"oelig", 0x153},  {"Scaron", 0x160},  {"scaron", 0x161},  {"Yuml", 0x178},
    {"ensp", 0x2002},  {"emsp", 0x2003},   {"thinsp", 0x2009}, {"lrm", 0x200E},
    {"rlm", 0x200F},
}};

constexpr size_t kLongestName = 8;  // "#x10FFFF"

bool isCharacter(uint32_t code) {
  constexpr uint32_t kLast = 0x10FFFF;
  const bool isSurrogate = code >= 0xD800 && code < 0xE000;
  const bool isOfCodes = code == '{' || code == '}' || code == '\\';
  return code >= ' ' && code <= kLast && !isSurrogate && !isOfCodes;
}

std::optional<uint32_t> codeOfNumber(std::string_view number) {
  const bool isHexadecimal = number.starts_with('x') || number.starts_with('X');
  if (isHexadecimal) number.remove_prefix(1);
  uint32_t code = 0;
  const char* end = number.data() + number.size();
  const auto [read, error] = std::from_chars(number.data(), end, code, isHexadecimal ? 16 : 10);
  if (error != std::errc() || read != end || !isCharacter(code)) return std::nullopt;
  return code;
}

/// What the name between "&" and ";" stands for.
std::optional<uint32_t> codeOf(std::string_view name) {
  if (name.starts_with('#')) return codeOfNumber(name.substr(1));
  if (const auto found = std::ranges::find(kLatin1, name); found != kLatin1.end())
    return kFirstOfLatin1 + static_cast<uint32_t>(found - kLatin1.begin());
  for (const auto& [other, code] : kOthers)
    if (other == name) return code;
  return std::nullopt;
}

}  // namespace

std::string withEntitiesRead(std::string_view text) {
  std::string result;
  for (size_t at; (at = text.find('&')) != std::string_view::npos;) {
    result += text.substr(0, at);
    text.remove_prefix(at);
    const size_t end = text.substr(0, kLongestName + 2).find(';');
    const auto code =
        end == std::string_view::npos ? std::nullopt : codeOf(text.substr(1, end - 1));
    if (code)
      appendUtf8(*code, result);
    else
      result += '&';
    text.remove_prefix(code ? end + 1 : 1);
  }
  return result.append(text);
}

bool hasEntities(AVCodecID codec) {
  return codec == AV_CODEC_ID_SUBRIP || codec == AV_CODEC_ID_SAMI;
}

}  // namespace kestrel
