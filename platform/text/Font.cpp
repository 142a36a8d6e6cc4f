#include <kestrel/Font.h>

#include "platform/text/PangoOwners.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <set>

namespace kestrel {

namespace {

constexpr std::string_view kSystemFamily = "sans-serif";

/// Names that stand for a choice of the system's.
constexpr std::array<std::string_view, 10> kGenericFamilies = {
    "sans-serif", "sans",    "serif",     "monospace", "mono",
    "cursive",    "fantasy", "system-ui", "emoji",     "math"};

struct StyleWord {
  std::string_view word;
  int weight;  ///< 0: the word says nothing of the weight
  bool italic;
};

constexpr std::array<StyleWord, 22> kStyleWords = {{
    {"thin", 100, false},        {"ultra-light", 200, false}, {"ultralight", 200, false},
    {"extra-light", 200, false}, {"extralight", 200, false},  {"light", 300, false},
    {"regular", 400, false},     {"normal", 400, false},      {"roman", 400, false},
    {"book", 400, false},        {"medium", 500, false},      {"semi-bold", 600, false},
    {"semibold", 600, false},    {"demi-bold", 600, false},   {"demibold", 600, false},
    {"bold", 700, false},        {"extra-bold", 800, false},  {"extrabold", 800, false},
    {"heavy", 900, false},       {"black", 900, false},       {"italic", 0, true},
    {"oblique", 0, true},
}};

const FcChar8* fcString(const std::string& text) {
  return reinterpret_cast<const FcChar8*>(text.c_str());
}

bool equalIgnoringCase(const std::string& a, const std::string& b) {
  return FcStrCmpIgnoreCase(fcString(a), fcString(b)) == 0;
}

bool isGeneric(const std::string& family) {
  return std::any_of(kGenericFamilies.begin(), kGenericFamilies.end(), [&](std::string_view name) {
    return equalIgnoringCase(family, std::string(name));
  });
}

bool isKnown(const std::string& family, const std::vector<std::string>& installed) {
  return isGeneric(family) ||
         std::any_of(installed.begin(), installed.end(),
                     [&](const std::string& name) { return equalIgnoringCase(family, name); });
}

const StyleWord* styleOf(const std::string& word) {
  const auto* found = std::find_if(
      kStyleWords.begin(), kStyleWords.end(),
      [&](const StyleWord& style) { return equalIgnoringCase(word, std::string(style.word)); });
  return found == kStyleWords.end() ? nullptr : found;
}

std::vector<std::string> wordsOf(std::string_view text) {
  constexpr std::string_view kSpace = " \t\n\r";
  std::vector<std::string> words;
  for (size_t end = 0;;) {
    const size_t begin = text.find_first_not_of(kSpace, end);
    if (begin == std::string_view::npos) return words;
    end = std::min(text.find_first_of(kSpace, begin), text.size());
    words.emplace_back(text.substr(begin, end - begin));
  }
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

/// The number that a word is as a whole, written in digits; nothing for a word that is none.
std::optional<double> numberIn(const std::string& word) {
  double number = 0;
  const char* end = word.data() + word.size();
  const auto [rest, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc() || rest != end || !std::isfinite(number)) return std::nullopt;
  return number;
}

}  // namespace

Font Font::systemFontOfSize(double size) {
  Font font;
  font.family = kSystemFamily;
  font.size = size;
  return font;
}

std::optional<Font> Font::fontWithDescription(std::string_view description, double defaultSize) {
  std::vector<std::string> words = wordsOf(description);
  if (words.empty()) return std::nullopt;

  Font font = systemFontOfSize(defaultSize);
  if (const std::optional<double> size = numberIn(words.back())) {
    font.size = *size;
    words.pop_back();
  }
  if (!(font.size > 0)) return std::nullopt;

  const std::vector<std::string> installed = availableFontFamilies();
  while (!words.empty() && !isKnown(joined(words), installed)) {
    const StyleWord* style = styleOf(words.back());
    if (!style) break;
    if (style->weight > 0) font.weight = style->weight;
    font.italic = font.italic || style->italic;
    words.pop_back();
  }
  if (!words.empty()) font.family = joined(words);
  return font;
}

std::vector<std::string> Font::availableFontFamilies() {
  const FcPatternPtr every(FcPatternCreate());
  const FcObjectSetPtr wanted(FcObjectSetBuild(FC_FAMILY, nullptr));
  const FcFontSetPtr fonts(FcFontList(nullptr, every.get(), wanted.get()));
  if (!fonts) return {};

  std::set<std::string> names;
  for (int i = 0; i < fonts->nfont; ++i) {
    FcChar8* name = nullptr;
    for (int n = 0; FcPatternGetString(fonts->fonts[i], FC_FAMILY, n, &name) == FcResultMatch;
         ++n) {
      names.insert(reinterpret_cast<const char*>(name));
    }
  }
  return {names.begin(), names.end()};
}

bool Font::exists() const { return isKnown(family, availableFontFamilies()); }

std::string Font::resolvedFamily() const {
  const FcPatternPtr wanted(FcPatternCreate());
  FcPatternAddString(wanted.get(), FC_FAMILY, fcString(family));
  FcPatternAddDouble(wanted.get(), FC_WEIGHT,
                     FcWeightFromOpenTypeDouble(std::clamp(weight, 1, 1000)));
  FcPatternAddInteger(wanted.get(), FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
  FcDefaultSubstitute(wanted.get());

  FcResult result = FcResultNoMatch;
  const FcPatternPtr found(FcFontMatch(nullptr, wanted.get(), &result));
  FcChar8* name = nullptr;
  if (!found || FcPatternGetString(found.get(), FC_FAMILY, 0, &name) != FcResultMatch) return {};
  return reinterpret_cast<const char*>(name);
}

}  // namespace kestrel
