#include "convert/probe/Labels.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "support/LanguageCode.h"
#include "support/Words.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Names = std::set<std::string_view>;

/// Languages with two codes in ISO 639-2: the bibliographic one and the one made of the language's
/// own name.
constexpr std::pair<std::string_view, std::string_view> kTwins[] = {
    {"alb", "sqi"}, {"arm", "hye"}, {"baq", "eus"}, {"bur", "mya"}, {"chi", "zho"},
    {"cze", "ces"}, {"dut", "nld"}, {"fre", "fra"}, {"geo", "kat"}, {"ger", "deu"},
    {"gre", "ell"}, {"ice", "isl"}, {"mac", "mkd"}, {"mao", "mri"}, {"may", "msa"},
    {"per", "fas"}, {"rum", "ron"}, {"slo", "slk"}, {"tib", "bod"}, {"wel", "cym"}};

/// Languages that QuickTime numbers, by the names that FFmpeg has for the numbers. No others can be
/// written.
const Names& ofQuickTime() {
  static const Names kNames{
      "eng", "fra", "ger", "ita", "dut", "sve", "spa", "dan", "por", "nor", "heb", "jpn", "ara",
      "fin", "gre", "ice", "mlt", "tur", "hr ", "chi", "urd", "hin", "tha", "kor", "lit", "pol",
      "hun", "est", "lav", "smi", "fo ", "per", "rus", "alb", "ron", "ces", "slk", "slv", "yid",
      "sr ", "mac", "bul", "ukr", "bel", "uzb", "kaz", "aze", "arm", "geo", "mol", "kir", "tgk",
      "tuk", "mon", "pus", "kur", "kas", "snd", "tib", "nep", "san", "mar", "ben", "asm", "guj",
      "pa ", "ori", "mal", "kan", "tam", "tel", "sin", "bur", "khm", "lao", "vie", "ind", "tgl",
      "may", "amh", "tir", "orm", "som", "swa", "kin", "run", "nya", "mlg", "epo", "wel", "baq",
      "cat", "lat", "que", "grn", "aym", "tat", "uig", "dzo", "jav"};
  return kNames;
}

/// Those of its names that are no codes.
constexpr std::pair<std::string_view, std::string_view> kOddNames[] = {
    {"swe", "sve"}, {"hrv", "hr "}, {"fao", "fo "}, {"srp", "sr "}, {"pan", "pa "}};

std::string inQuickTime(const std::string& code) {
  const auto held = [](std::string_view name) { return ofQuickTime().contains(name); };
  if (held(code)) return code;
  for (const auto& [one, other] : kTwins) {
    if (code == one && held(other)) return std::string(other);
    if (code == other && held(one)) return std::string(one);
  }
  for (const auto& [own, name] : kOddNames)
    if (code == own) return std::string(name);
  return {};
}

/// What a container is known to hold of some names; none where nothing is known.
using Table = std::map<std::string_view, Names>;

std::optional<bool> isIn(const Table& table, const AVOutputFormat& container,
                         std::string_view name) {
  const auto row = table.find(container.name);
  return row == table.end() ? std::nullopt : std::optional(row->second.contains(name));
}

}  // namespace

std::string heldLanguage(const AVOutputFormat& container, const std::string& code) {
  static const Names kWithout{"avi", "flv",  "mpeg", "vob", "dvd",  "vcd",  "svcd", "mxf",
                              "mp3", "flac", "wav",  "w64", "aiff", "adts", "ac3"};
  static const Names kOfThreeLetters{"mp4", "mov", "ipod", "3gp", "3g2", "mpegts", "asf"};
  if (kWithout.contains(container.name)) return {};
  if (!kOfThreeLetters.contains(container.name)) return code;
  const std::string known = longLanguageCode(code);
  return std::string_view(container.name) == "mov" ? inQuickTime(known) : known;
}

std::string languageOfQuickTime(const std::string& name) {
  for (const auto& [own, odd] : kOddNames)
    if (name == odd) return std::string(own);
  return name;
}

bool holdsFlag(const AVOutputFormat& container, std::string_view flag) {
  static const Names kOfMatroska{"default",          "forced",          "original", "comment",
                                 "hearing_impaired", "visual_impaired", "captions", "descriptions"};
  static const Table kFlags{{"matroska", kOfMatroska},
                            {"webm", {"default", "forced"}},
                            {"mp4",
                             {"default", "forced", "comment", "hearing_impaired", "visual_impaired",
                              "captions", "descriptions", "dub"}},
                            {"mov", {"default"}},
                            {"ipod", {"default"}},
                            {"3gp", {"default"}},
                            {"3g2", {"default"}},
                            {"mpegts", {"hearing_impaired", "visual_impaired"}},
                            {"avi", {}},
                            {"flv", {}},
                            {"mpeg", {}},
                            {"vob", {}},
                            {"dvd", {}},
                            {"asf", {}},
                            {"ogg", {}},
                            {"oga", {}},
                            {"ogv", {}},
                            {"mxf", {}},
                            {"mp3", {}},
                            {"flac", {}},
                            {"wav", {}}};
  return isIn(kFlags, container, flag).value_or(true);
}

bool holdsTitles(const AVOutputFormat& container) {
  static const Names kWithout{"mp4", "mov",  "ipod", "3gp", "3g2", "mpegts",
                              "flv", "mpeg", "vob",  "dvd", "asf", "mxf"};
  return !kWithout.contains(container.name);
}

bool holdsTag(const AVOutputFormat& container, std::string_view tag) {
  static const Names kKnown{
      "title",      "artist",        "album",        "album_artist", "author",    "performer",
      "conductor",  "composer",      "director",     "producer",     "publisher", "date",
      "genre",      "copyright",     "description",  "synopsis",     "comment",   "keywords",
      "lyrics",     "track",         "disc",         "grouping",     "show",      "network",
      "episode_id", "season_number", "episode_sort", "location",     "language",  "rating",
      "make",       "model"};
  static const Names kOfMpeg4{
      "title",      "artist",        "album",        "album_artist", "composer", "date",
      "genre",      "copyright",     "description",  "synopsis",     "comment",  "keywords",
      "lyrics",     "track",         "disc",         "grouping",     "show",     "network",
      "episode_id", "season_number", "episode_sort", "location"};
  static const Names kOfPhones{"title", "artist",    "author",  "album",   "date",
                               "genre", "copyright", "comment", "location"};
  static const Names kOfRiff{"title", "artist",    "album",   "date",    "genre",
                             "track", "copyright", "comment", "language"};
  static const Table kTags{{"mp4", kOfMpeg4},
                           {"ipod", kOfMpeg4},
                           {"mov",
                            {"title", "artist", "author", "album", "date", "genre", "copyright",
                             "comment", "location", "make", "model"}},
                           {"3gp", kOfPhones},
                           {"3g2", kOfPhones},
                           {"avi", kOfRiff},
                           {"wav", kOfRiff},
                           {"aiff", {"title", "author", "copyright", "comment"}},
                           {"mpegts", {}},
                           {"mpeg", {}},
                           {"vob", {}},
                           {"dvd", {}},
                           {"vcd", {}},
                           {"svcd", {}},
                           {"mxf", {}}};
  const std::string lowered = lowerCased(tag);
  return !kKnown.contains(lowered) || isIn(kTags, container, lowered).value_or(true);
}

}  // namespace kestrel
