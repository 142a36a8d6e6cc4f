#include <kestrel/TextEncoding.h>

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <string_view>

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

struct ConverterDeleter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
struct DetectorDeleter {
  void operator()(UCharsetDetector* detector) const { ucsdet_close(detector); }
};

/// What to do with bytes that the encoding does not have.
enum class Damaged { kReplaced, kRefused };

/// Statistics of characters need less; more would only cost time.
constexpr size_t kSampleSize = size_t{64} * 1024;

std::optional<std::string> decode(Bytes data, const char* encoding, Damaged damaged) {
  if (data.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max()) / 4) return {};
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UConverter, ConverterDeleter> converter(ucnv_open(encoding, &error));
  if (damaged == Damaged::kRefused) {
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &error);
  }
  if (U_FAILURE(error)) return {};

  // No encoding makes more than two UTF-16 units of a byte.
  icu::UnicodeString text;
  const auto capacity = static_cast<int32_t>(data.size() * 2 + 1);
  char16_t* buffer = text.getBuffer(capacity);
  if (!buffer) return {};
  const int32_t length =
      ucnv_toUChars(converter.get(), buffer, capacity, reinterpret_cast<const char*>(data.data()),
                    static_cast<int32_t>(data.size()), &error);
  text.releaseBuffer(U_SUCCESS(error) ? length : 0);
  if (U_FAILURE(error)) return {};
  std::string utf8;
  return text.toUTF8String(utf8);
}

struct Utf8Statistics {
  size_t characters = 0;
  size_t multibyte = 0;
  size_t damaged = 0;
  size_t zeros = 0;
  size_t controls = 0;  ///< other than white space; zeros and C1 included
};

Utf8Statistics statisticsOf(Bytes data) {
  Utf8Statistics statistics;
  for (size_t next = 0; next < data.size();) {
    const size_t start = next;
    UChar32 c = 0;
    U8_NEXT(data.data(), next, data.size(), c);
    ++statistics.characters;
    if (c < 0) {
      ++statistics.damaged;
    } else if (next - start > 1) {
      ++statistics.multibyte;
    }
    if (c == 0) ++statistics.zeros;
    if (c >= 0 && u_charType(c) == U_CONTROL_CHAR && !u_isUWhiteSpace(c)) ++statistics.controls;
  }
  return statistics;
}

Bytes bytesOf(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// DOS programs closed a text file with this character.
Bytes withoutEndOfFileMark(Bytes data) {
  return !data.empty() && data.back() == 0x1A ? data.first(data.size() - 1) : data;
}

std::optional<std::string> textOrNothing(std::optional<std::string> decoded) {
  if (!decoded) return {};
  const Utf8Statistics statistics = statisticsOf(bytesOf(*decoded));
  if (statistics.zeros > 0 || statistics.controls * 100 > statistics.characters) return {};
  return decoded;
}

struct Mark {
  std::string_view bytes;
  const char* encoding;
};

/// The longer ones first: UTF-32's begins as UTF-16's does.
constexpr std::array<Mark, 5> kMarks = {{{{"\xFF\xFE\0\0", 4}, "UTF-32LE"},
                                         {{"\0\0\xFE\xFF", 4}, "UTF-32BE"},
                                         {{"\xEF\xBB\xBF", 3}, "UTF-8"},
                                         {{"\xFF\xFE", 2}, "UTF-16LE"},
                                         {{"\xFE\xFF", 2}, "UTF-16BE"}}};

const Mark* markOf(Bytes data) {
  const auto* found = std::find_if(kMarks.begin(), kMarks.end(), [data](const Mark& mark) {
    return data.size() >= mark.bytes.size() &&
           std::equal(mark.bytes.begin(), mark.bytes.end(), data.begin(),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
  });
  return found == kMarks.end() ? nullptr : found;
}

/// A text in UTF-16 has line breaks, spaces or digits, whose zero bytes are all first or all
/// second.
const char* utf16ByZeros(Bytes data) {
  std::array<size_t, 2> zeros{};
  for (size_t i = 0; i < data.size(); ++i) {
    if (data[i] == 0) ++zeros[i % 2];
  }
  if (data.size() % 2 != 0 || (zeros[0] > 0) == (zeros[1] > 0)) return nullptr;
  return zeros[0] > 0 ? "UTF-16BE" : "UTF-16LE";
}

/// The lines with bytes beyond ASCII, up to the sample's size: time stamps say nothing of a
/// language.
std::string sampleOf(Bytes data) {
  std::string sample;
  for (auto line = data.begin(); line != data.end() && sample.size() < kSampleSize;) {
    auto end = std::find(line, data.end(), '\n');
    if (end != data.end()) ++end;
    if (std::any_of(line, end, [](uint8_t byte) { return byte >= 0x80; })) {
      sample.append(line, end);
    }
    line = end;
  }
  return sample;
}

bool isKana(UChar32 c) { return c >= 0x3041 && c <= 0x30FE; }

/// Japanese text has kana throughout, which no other encoding's text reads as.
bool readsAsJapanese(const std::string& text) {
  size_t kana = 0;
  size_t others = 0;
  const Bytes bytes = bytesOf(text);
  for (size_t next = 0; next < bytes.size();) {
    UChar32 c = 0;
    U8_NEXT(bytes.data(), next, bytes.size(), c);
    if (c >= 0x80) ++(isKana(c) ? kana : others);
  }
  return kana * 3 > others;
}

bool isAsciiLetter(char byte) {
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

/// Whether the words that have bytes beyond ASCII have as many ASCII letters, as with accented
/// letters, and not hardly any, as in another script.
bool isLatin(const std::string& sample) {
  size_t letters = 0;
  size_t others = 0;
  size_t lettersOfWord = 0;
  size_t othersOfWord = 0;
  for (size_t i = 0; i <= sample.size(); ++i) {
    if (i < sample.size() && isAsciiLetter(sample[i])) {
      ++lettersOfWord;
    } else if (i < sample.size() && static_cast<uint8_t>(sample[i]) >= 0x80) {
      ++othersOfWord;
    } else {
      if (othersOfWord > 0) letters += lettersOfWord;
      others += othersOfWord;
      lettersOfWord = othersOfWord = 0;
    }
  }
  return letters >= others;
}

struct Suggestion {
  std::string_view detected;
  const char* encoding;
  bool latin;
};

/// What the detector may suggest, and the superset to decode it as.
constexpr std::array<Suggestion, 20> kSuggestions = {{
    {"ISO-8859-1", "windows-1252", true},
    {"windows-1252", "windows-1252", true},
    {"ISO-8859-2", "ISO-8859-2", true},
    {"windows-1250", "windows-1250", true},
    {"ISO-8859-9", "windows-1254", true},
    {"windows-1254", "windows-1254", true},
    {"windows-1251", "windows-1251", false},
    {"KOI8-R", "KOI8-R", false},
    {"ISO-8859-5", "ISO-8859-5", false},
    {"ISO-8859-7", "windows-1253", false},
    {"windows-1253", "windows-1253", false},
    {"ISO-8859-8", "windows-1255", false},
    {"ISO-8859-8-I", "windows-1255", false},
    {"windows-1255", "windows-1255", false},
    {"windows-1256", "windows-1256", false},
    {"Shift_JIS", "windows-31j", false},
    {"EUC-JP", "EUC-JP", false},
    {"EUC-KR", "windows-949", false},
    {"GB18030", "GB18030", false},
    {"Big5", "Big5", false},
}};

/// What reads as text has no symbols and digits in the place of letters, and no capitals within
/// words. It is how the right one of several encodings of a script is known.
bool readsAsWords(const std::string& text) {
  size_t characters = 0;
  size_t faults = 0;
  UChar32 previous = 0;
  const Bytes bytes = bytesOf(text);
  for (size_t next = 0; next < bytes.size();) {
    UChar32 c = 0;
    U8_NEXT(bytes.data(), next, bytes.size(), c);
    if (c >= 0x80) {
      ++characters;
      const bool isText = (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_P_MASK |
                                               U_GC_Z_MASK | U_GC_CF_MASK | U_GC_SC_MASK)) != 0;
      if (!isText || (u_isupper(c) && u_islower(previous))) ++faults;
    }
    previous = c;
  }
  return faults * 20 <= characters;
}

bool isWestern(const Suggestion& suggestion) {
  return std::string_view(suggestion.encoding) == "windows-1252";
}

/// The detector's best suggestion that suits the script and decodes the whole text into words.
std::optional<std::string> decodeAsDetected(Bytes data, const std::string& sample, bool latin) {
  constexpr int32_t kLeastConfidence = 12;  // of 100; 10 is said of whatever is not impossible
  // An English text with a few borrowed words says nothing of a language.
  constexpr ptrdiff_t kFewestAccents = 8;
  const bool fewAccents = std::count_if(sample.begin(), sample.end(), [](char byte) {
                            return static_cast<uint8_t>(byte) >= 0x80;
                          }) < kFewestAccents;

  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UCharsetDetector, DetectorDeleter> detector(ucsdet_open(&error));
  ucsdet_setText(detector.get(), sample.data(), static_cast<int32_t>(sample.size()), &error);
  ucsdet_enableInputFilter(detector.get(), true);
  int32_t count = 0;
  const UCharsetMatch** matches = ucsdet_detectAll(detector.get(), &count, &error);
  if (U_FAILURE(error)) return {};

  for (int32_t i = 0; i < count; ++i) {
    const std::string_view name = ucsdet_getName(matches[i], &error);
    const auto* known = std::find_if(kSuggestions.begin(), kSuggestions.end(),
                                     [name](const Suggestion& s) { return s.detected == name; });
    if (known == kSuggestions.end() || known->latin != latin) continue;
    if (ucsdet_getConfidence(matches[i], &error) < kLeastConfidence) continue;
    if (latin && fewAccents && !isWestern(*known)) continue;
    auto text = decode(data, known->encoding, Damaged::kRefused);
    if (text && readsAsWords(*text)) return text;
  }
  return {};
}

std::optional<std::string> decodeLegacy(Bytes data) {
  const std::string sample = sampleOf(data);
  auto japanese = decode(data, "windows-31j", Damaged::kRefused);
  if (japanese && readsAsJapanese(*japanese)) return japanese;

  const bool latin = isLatin(sample);
  if (auto text = decodeAsDetected(data, sample, latin)) return text;
  return decode(data, latin ? "windows-1252" : "windows-1251", Damaged::kReplaced);
}

}  // namespace

std::optional<std::string> textFromData(std::span<const uint8_t> data) {
  if (const Mark* mark = markOf(data)) {
    return textOrNothing(
        decode(data.subspan(mark->bytes.size()), mark->encoding, Damaged::kReplaced));
  }

  const Bytes text = withoutEndOfFileMark(data);
  const Utf8Statistics utf8 = statisticsOf(text);
  if (utf8.zeros > 0) {
    const char* encoding = utf16ByZeros(data);
    if (!encoding) return {};
    return textOrNothing(decode(data, encoding, Damaged::kRefused));
  }
  // Other encodings' texts are well-formed UTF-8 by chance only, and never in many places.
  constexpr size_t kWellFormedPerDamaged = 8;
  if (utf8.damaged * kWellFormedPerDamaged <= utf8.multibyte) {
    return textOrNothing(decode(text, "UTF-8", Damaged::kReplaced));
  }
  return textOrNothing(decodeLegacy(text));
}

}  // namespace kestrel
