#include "tools/terminal/Keys.h"

#include <array>
#include <cstddef>

namespace {

struct Meaning {
  std::string_view bytes;
  PlayKey key;
};

constexpr std::array kMeanings{
    Meaning{" ", PlayKey::kPause},
    Meaning{"p", PlayKey::kPause},
    Meaning{"\x1b[D", PlayKey::kBack},
    Meaning{"\x1bOD", PlayKey::kBack},
    Meaning{"\x1b[C", PlayKey::kForward},
    Meaning{"\x1bOC", PlayKey::kForward},
    Meaning{"\x1b[B", PlayKey::kFarBack},
    Meaning{"\x1bOB", PlayKey::kFarBack},
    Meaning{"\x1b[A", PlayKey::kFarForward},
    Meaning{"\x1bOA", PlayKey::kFarForward},
    Meaning{"\x1b[H", PlayKey::kToStart},
    Meaning{"\x1bOH", PlayKey::kToStart},
    Meaning{"\x1b[1~", PlayKey::kToStart},
    Meaning{"[", PlayKey::kSlower},
    Meaning{"]", PlayKey::kFaster},
    Meaning{"{", PlayKey::kHalfAsFast},
    Meaning{"}", PlayKey::kTwiceAsFast},
    Meaning{"\x7f", PlayKey::kUsualSpeed},
    Meaning{"\b", PlayKey::kUsualSpeed},
    Meaning{"9", PlayKey::kQuieter},
    Meaning{"/", PlayKey::kQuieter},
    Meaning{"0", PlayKey::kLouder},
    Meaning{"*", PlayKey::kLouder},
    Meaning{"m", PlayKey::kMute},
    Meaning{"\x1a", PlayKey::kSuspend},
    Meaning{"q", PlayKey::kQuit},
    Meaning{"Q", PlayKey::kQuit},
};

/// How long the escape sequence at the beginning of a text is: up to its final letter or "~"; 0
/// where it has not all come.
size_t escapeLength(std::string_view text) {
  if (text.size() < 2) return 0;
  if (text[1] == 'O') return text.size() < 3 ? 0 : 3;
  if (text[1] != '[') return 1;  // the key Escape, and another one
  for (size_t i = 2; i < text.size(); ++i)
    if (text[i] >= '@' && text[i] <= '~') return i + 1;
  return 0;
}

}  // namespace

std::vector<PlayKey> KeyReader::read(std::string_view bytes) {
  waiting_ += bytes;
  std::vector<PlayKey> keys;
  while (!waiting_.empty()) {
    const size_t length = waiting_.front() == '\x1b' ? escapeLength(waiting_) : 1;
    if (length == 0) break;
    for (const auto& meaning : kMeanings)
      if (meaning.bytes == std::string_view(waiting_).substr(0, length))
        keys.push_back(meaning.key);
    waiting_.erase(0, length);
  }
  constexpr size_t kLongestSequence = 32;
  if (waiting_.size() > kLongestSequence) waiting_.clear();
  return keys;
}
