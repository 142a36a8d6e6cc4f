#include "platform/archive/XmlPropertyList.h"

#include <kestrel/TextEncoding.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/archive/BinaryPropertyList.h"
#include "platform/text/Utf8.h"

namespace kestrel {

namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr uint32_t kLargestCharacter = 0x10FFFF;

/// Where dates count from, in seconds since 1970.
constexpr double kFirstSecond = 978307200;

/// How keyed archives write the number of an object where there is no kind of value for it.
constexpr char kUidKey[] = "CF$UID";

[[noreturn]] void fail(const char* what) { throw PropertyListError(what); }

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

/// The whole text as a number.
template <typename Number, typename... Format>
std::optional<Number> numberOf(std::string_view text, Format... format) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, format...);
  return error == std::errc{} && stop == end && !text.empty() ? std::optional(number)
                                                              : std::nullopt;
}

/// "-17" or "0x1F".
int64_t integerOf(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const bool isNegative = text.starts_with("-0x") || text.starts_with("-0X");
  std::string_view digits = isNegative ? text.substr(1) : text;
  if (!digits.starts_with("0x") && !digits.starts_with("0X")) {
    const auto number = numberOf<int64_t>(text);
    return number ? *number : (fail("it holds an integer that cannot be read"), 0);
  }
  digits.remove_prefix(2);
  const auto number = digits.starts_with('-') ? std::nullopt : numberOf<int64_t>(digits, 16);
  if (!number) fail("it holds an integer that cannot be read");
  return isNegative ? -*number : *number;
}

/// "1.5e3", "nan", "+infinity".
double realOf(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto number = numberOf<double>(text);
  if (!number) fail("it holds a number that cannot be read");
  return *number;
}

/// "2011-04-05T06:07:08Z".
PropertyList::Date dateOf(std::string_view text) {
  constexpr std::string_view kShape = "dddd-dd-ddTdd:dd:ddZ";
  bool isDate = text.size() == kShape.size();
  for (size_t i = 0; isDate && i < text.size(); ++i)
    isDate = kShape[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == kShape[i];
  if (!isDate) fail("it holds a date that cannot be read");
  const auto part = [&](size_t place, size_t size) {
    return numberOf<int>(text.substr(place, size)).value_or(0);
  };
  const std::chrono::year_month_day day{std::chrono::year(part(0, 4)),
                                        std::chrono::month(static_cast<unsigned>(part(5, 2))),
                                        std::chrono::day(static_cast<unsigned>(part(8, 2)))};
  if (!day.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 60)
    fail("it holds a date that is none");
  const auto days = std::chrono::sys_days(day).time_since_epoch();
  const int seconds = (part(11, 2) * 60 + part(14, 2)) * 60 + part(17, 2);
  return {std::chrono::duration<double>(days).count() + seconds - kFirstSecond};
}

/// A base 64 digit's six bits; none for another character.
std::optional<uint32_t> bitsOf(char c) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t place = kDigits.find(c);
  return place == std::string_view::npos ? std::nullopt
                                         : std::optional(static_cast<uint32_t>(place));
}

PropertyList::Data dataOf(std::string_view text) {
  PropertyList::Data data;
  uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    if (kSpace.find(c) != std::string_view::npos || c == '=') continue;
    const auto digit = bitsOf(c);
    if (!digit) fail("it holds data that are not in base 64");
    bits = bits << 6 | *digit;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    data.push_back(static_cast<uint8_t>(bits >> count));
  }
  return data;
}

/// Where a name in a tag ends: before a space, "/" or ">".
std::string_view nameIn(std::string_view tag) {
  return tag.substr(0, tag.find_first_of(" \t\r\n/"));
}

/// The document as a row of tags and texts, read from front to back.
class Document {
 public:
  explicit Document(std::string_view text) : text_(text) {}

  struct Tag {
    std::string_view name;
    bool isEnd = false;    // </name>
    bool isEmpty = false;  // <name/>
  };

  /// The next tag; between it and here lies nothing but space and what means nothing.
  Tag nextTag() {
    skipToMarkup();
    return takeTag();
  }

  /// All text up to an element's end, which is taken, too.
  std::string textUntilEnd(std::string_view name) {
    std::string all;
    for (;;) {
      const size_t markup = text_.find('<');
      if (markup == std::string_view::npos) fail("it ends within a text");
      appendText(text_.substr(0, markup), all);
      text_.remove_prefix(markup);
      if (takeCharacterData(all) || skipMeaningless()) continue;
      const Tag tag = takeTag();
      if (!tag.isEnd || tag.name != name) fail("a text holds an element");
      return all;
    }
  }

  void requireEnd() {
    skipSpaces();
    while (skipMeaningless()) skipSpaces();
    if (!text_.empty()) fail("something follows the list");
  }

 private:
  Tag takeTag() {
    const size_t end = text_.find('>');
    if (!text_.starts_with('<') || end == std::string_view::npos) fail("it ends within a tag");
    std::string_view inner = text_.substr(1, end - 1);
    text_.remove_prefix(end + 1);
    Tag tag;
    tag.isEnd = inner.starts_with('/');
    if (tag.isEnd) inner.remove_prefix(1);
    tag.isEmpty = inner.ends_with('/');
    tag.name = nameIn(inner);
    return tag;
  }

  void skipSpaces() {
    const size_t first = text_.find_first_not_of(kSpace);
    text_.remove_prefix(first == std::string_view::npos ? text_.size() : first);
  }

  void skipToMarkup() {
    do skipSpaces();
    while (skipMeaningless());
    if (!text_.starts_with('<')) fail("a text stands where an element should");
  }

  /// Leaves out a comment, an instruction or the document's type.
  bool skipMeaningless() {
    if (text_.starts_with("<!--")) return skipTo("-->");
    if (text_.starts_with("<?")) return skipTo("?>");
    if (!text_.starts_with("<!DOCTYPE")) return false;
    const size_t end = text_.find_first_of(">[");
    if (end != std::string_view::npos && text_[end] == '[') fail("it declares entities");
    return skipTo(">");
  }

  bool skipTo(std::string_view end) {
    const size_t place = text_.find(end);
    if (place == std::string_view::npos) fail("it ends within a comment");
    text_.remove_prefix(place + end.size());
    return true;
  }

  bool takeCharacterData(std::string& all) {
    constexpr std::string_view kBegin = "<![CDATA[";
    if (!text_.starts_with(kBegin)) return false;
    const size_t end = text_.find("]]>");
    if (end == std::string_view::npos) fail("it ends within a text");
    all += text_.substr(kBegin.size(), end - kBegin.size());
    text_.remove_prefix(end + 3);
    return true;
  }

  static void appendText(std::string_view text, std::string& all) {
    for (;;) {
      const size_t place = text.find('&');
      all += text.substr(0, place);
      if (place == std::string_view::npos) return;
      text.remove_prefix(place + 1);
      const size_t end = text.find(';');
      if (end == std::string_view::npos) fail("it holds an entity without an end");
      appendEntity(text.substr(0, end), all);
      text.remove_prefix(end + 1);
    }
  }

  static void appendEntity(std::string_view name, std::string& all) {
    constexpr std::array<std::pair<std::string_view, char>, 5> kKnown{
        {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
    for (const auto& [known, character] : kKnown)
      if (name == known) return all.push_back(character);
    if (!name.starts_with('#')) fail("it holds an unknown entity");
    const bool isHexadecimal = name.starts_with("#x");
    const auto code =
        isHexadecimal ? numberOf<uint32_t>(name.substr(2), 16) : numberOf<uint32_t>(name.substr(1));
    const bool isSurrogate = code && *code >= 0xD800 && *code < 0xE000;
    if (!code || *code == 0 || *code > kLargestCharacter || isSurrogate)
      fail("it holds a character that is none");
    appendUtf8(*code, all);
  }

  std::string_view text_;
};

class Reader {
 public:
  explicit Reader(std::string_view text) : document_(text) {}

  PropertyList read() {
    const auto root = document_.nextTag();
    if (root.name != "plist" || root.isEnd || root.isEmpty) fail("it is no property list");
    PropertyList list = value(document_.nextTag(), kDeepestPropertyList);
    const auto end = document_.nextTag();
    if (end.name != "plist" || !end.isEnd) fail("it holds more than one value");
    document_.requireEnd();
    return list;
  }

 private:
  using Tag = Document::Tag;

  PropertyList value(const Tag& tag, int depth) {
    if (depth == 0) fail("its objects lie too deep in each other");
    if (tag.isEnd) fail("a value is missing");
    if (tag.name == "dict") return dictionary(tag, depth);
    if (tag.name == "array") return array(tag, depth);
    const std::string text = tag.isEmpty ? "" : document_.textUntilEnd(tag.name);
    if (tag.name == "string") return text;
    if (tag.name == "true") return true;
    if (tag.name == "false") return false;
    if (tag.name == "integer") return integerOf(trimmed(text));
    if (tag.name == "real") return realOf(trimmed(text));
    if (tag.name == "data") return dataOf(text);
    if (tag.name == "date") return dateOf(trimmed(text));
    fail("it holds a value of an unknown kind");
  }

  PropertyList array(const Tag& tag, int depth) {
    PropertyList::Array list;
    if (tag.isEmpty) return list;
    for (Tag next = document_.nextTag(); !isEndOf(next, "array"); next = document_.nextTag())
      list.push_back(value(next, depth - 1));
    return list;
  }

  PropertyList dictionary(const Tag& tag, int depth) {
    PropertyList::Dictionary entries;
    if (tag.isEmpty) return entries;
    for (Tag next = document_.nextTag(); !isEndOf(next, "dict"); next = document_.nextTag()) {
      if (next.name != "key" || next.isEnd) fail("a dictionary holds a value without a key");
      std::string key = next.isEmpty ? "" : document_.textUntilEnd("key");
      entries.insert_or_assign(std::move(key), value(document_.nextTag(), depth - 1));
    }
    const auto uid = entries.find(kUidKey);
    const auto* number = uid == entries.end() ? nullptr : uid->second.as<int64_t>();
    const bool isUid = number && entries.size() == 1 && *number >= 0 &&
                       *number <= std::numeric_limits<uint32_t>::max();
    if (isUid) return PropertyList::Uid{static_cast<uint32_t>(*number)};
    return entries;
  }

  static bool isEndOf(const Tag& tag, std::string_view name) {
    if (tag.isEnd && tag.name != name) fail("its elements overlap");
    return tag.isEnd;
  }

  Document document_;
};

bool hasMark(std::span<const uint8_t> bytes) {
  const auto begins = [bytes](uint8_t first, uint8_t second) {
    return bytes.size() > 1 && bytes[0] == first && bytes[1] == second;
  };
  return begins(0xEF, 0xBB) || begins(0xFF, 0xFE) || begins(0xFE, 0xFF);
}

}  // namespace

bool isXmlPropertyList(std::span<const uint8_t> bytes) {
  if (hasMark(bytes)) return true;
  for (const uint8_t byte : bytes)
    if (kSpace.find(static_cast<char>(byte)) == std::string_view::npos) return byte == '<';
  return false;
}

PropertyList readXmlPropertyList(std::span<const uint8_t> bytes) {
  if (hasMark(bytes)) {
    const auto text = textFromData(bytes);
    if (!text) fail("it is no text");
    return Reader(*text).read();
  }
  return Reader({reinterpret_cast<const char*>(bytes.data()), bytes.size()}).read();
}

}  // namespace kestrel
