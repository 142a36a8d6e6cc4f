#include "platform/text/CleanText.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>

namespace kestrel {

namespace {

constexpr UChar32 kReplacement = 0xFFFD;

bool isLineBreak(UChar32 c) {
  return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

void append(std::string& text, UChar32 c) {
  char bytes[U8_MAX_LENGTH];
  int length = 0;
  U8_APPEND_UNSAFE(bytes, length, c);
  text.append(bytes, static_cast<size_t>(length));
}

}  // namespace

CleanText cleanText(std::string_view original, size_t limit) {
  CleanText clean;
  const auto size = static_cast<int32_t>(std::min<size_t>(original.size(), limit));
  const auto* bytes = reinterpret_cast<const uint8_t*>(original.data());
  clean.text.reserve(static_cast<size_t>(size));
  clean.places.reserve(original.size() + 1);

  UChar32 previous = 0;
  for (int32_t next = 0; next < size;) {
    const int32_t start = next;
    UChar32 c = 0;
    U8_NEXT(bytes, next, size, c);
    // A character that the limit cuts is left out; one that the text's own end cuts is damaged.
    if (c < 0 && next == size && static_cast<size_t>(size) < original.size()) break;
    clean.places.insert(clean.places.end(), static_cast<size_t>(next - start), clean.text.size());

    if (c < 0) {
      append(clean.text, kReplacement);
    } else if (isLineBreak(c)) {
      if (!(c == '\n' && previous == '\r')) clean.text += '\n';
    } else if (c == '\t' || u_charType(c) != U_CONTROL_CHAR) {
      append(clean.text, c);
    }
    previous = c;
  }
  clean.places.resize(original.size() + 1, clean.text.size());
  return clean;
}

}  // namespace kestrel
