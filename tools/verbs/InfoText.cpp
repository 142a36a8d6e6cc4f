#include "tools/verbs/InfoText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "tools/cli/Text.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

/// Where the values of the container's and where a stream's lines begin.
constexpr size_t kValueColumn = 14;
constexpr size_t kStreamColumn = 14;

/// What writers of MP4 files put where they name no maker.
constexpr const char* kNoVendor = "[0][0][0][0]";

using Words = std::vector<std::string>;

std::string joined(const Words& words) { return fmt::format("{}", fmt::join(words, ", ")); }

bool isKnown(const ordered_json& json, const char* key) {
  return json.contains(key) && !json[key].is_null();
}

std::string text(const ordered_json& json, const char* key) {
  return isKnown(json, key) ? printable(json[key].get_ref<const std::string&>()) : std::string();
}

/// A value whose further lines stand below the first.
std::string aligned(std::string_view value, size_t column) {
  std::string lines;
  for (const char c : value) {
    lines += c;
    if (c == '\n') lines.append(column, ' ');
  }
  return lines;
}

std::string labelled(std::string_view label, std::string_view value) {
  return fmt::format("{:<{}}{}\n", label, kValueColumn, aligned(value, kValueColumn));
}

/// One line for each tag, the names padded to the longest among them.
std::string tagLines(const ordered_json& tags, size_t indentation) {
  constexpr size_t kLongestPadded = 32;
  size_t width = 0;
  for (const auto& [key, value] : tags.items())
    if (key.size() <= kLongestPadded) width = std::max(width, key.size());
  std::string lines;
  for (const auto& [key, value] : tags.items()) {
    const std::string name = printable(key);
    lines += fmt::format("{:{}}{:<{}}  {}\n", "", indentation, name, width,
                         aligned(printable(value.get_ref<const std::string&>()),
                                 indentation + std::max(width, name.size()) + 2));
  }
  return lines;
}

/// "30000/1001" or "16:9" as its two numbers; 0 and 1 for any other text.
std::pair<double, double> terms(const std::string& fraction, char separator) {
  const size_t at = fraction.find(separator);
  if (at == std::string::npos) return {0, 1};
  return {std::stod(fraction.substr(0, at)), std::stod(fraction.substr(at + 1))};
}

std::string rate(const ordered_json& stream) {
  const std::string fraction = text(stream, "frame_rate");
  if (fraction.empty()) return {};
  const auto [num, den] = terms(fraction, '/');
  const std::string shown = formatNumber(num / den, 3);
  // Other denominators than television's are averages, of which nobody wants all digits.
  return den == 1001 ? fmt::format("{} ({}) fps", shown, fraction) : shown + " fps";
}

/// "16:9", but "1.17:1" where the terms tell nobody anything.
std::string shape(const std::string& fraction) {
  const auto [width, height] = terms(fraction, ':');
  return std::max(width, height) < 100 ? fraction : formatNumber(width / height, 2) + ":1";
}

std::string codecName(const ordered_json& stream) {
  const std::string profile = text(stream, "profile");
  std::string name = isKnown(stream, "codec") ? text(stream, "codec") : "unknown codec";
  if (!profile.empty()) name += " " + profile;
  const std::string tag = text(stream, "tag");
  const bool isReadable = tag.find('[') == std::string::npos;
  if (!tag.empty() && isReadable) name += " [" + tag + "]";
  return name;
}

std::string language(const ordered_json& stream) {
  const std::string code = text(stream, "language");
  const std::string name = text(stream, "language_name");
  return name.empty() ? code : fmt::format("{} ({})", name, code);
}

std::string channels(const ordered_json& stream) {
  if (isKnown(stream, "channel_layout")) return text(stream, "channel_layout");
  const int count = isKnown(stream, "channels") ? stream["channels"].get<int>() : 0;
  if (count == 0) return {};
  return count == 1 ? "mono" : fmt::format("{} channels", count);
}

/// What everybody asks of a stream first.
Words mainFacts(const ordered_json& stream) {
  Words facts{codecName(stream)};
  const auto add = [&](std::string fact) {
    if (!fact.empty()) facts.push_back(std::move(fact));
  };
  if (isKnown(stream, "width") && isKnown(stream, "height")) {
    add(fmt::format("{}x{}", stream["width"].get<int>(), stream["height"].get<int>()));
  }
  add(rate(stream));
  if (isKnown(stream, "sample_rate")) add(fmt::format("{} Hz", stream["sample_rate"].get<int>()));
  add(channels(stream));
  if (isKnown(stream, "bit_rate")) add(formatBitRate(stream["bit_rate"].get<int64_t>()));
  add(language(stream));
  for (const auto& flag : stream["disposition"]) add(flag.get<std::string>());
  return facts;
}

/// "bt709, limited range": the matrix, and primaries and transfer where they differ from it.
Words colorFacts(const ordered_json& stream) {
  Words names;
  for (const char* key : {"color_space", "color_primaries", "color_transfer"}) {
    const std::string name = text(stream, key);
    if (!name.empty() && std::ranges::count(names, name) == 0) names.push_back(name);
  }
  Words facts;
  if (!names.empty()) facts.push_back("colour " + fmt::format("{}", fmt::join(names, "/")));
  const std::string range = text(stream, "color_range");
  if (!range.empty()) facts.push_back(range == "pc" ? "full range" : "limited range");
  return facts;
}

Words detailFacts(const ordered_json& stream) {
  Words facts;
  for (const char* key : {"pix_fmt", "sample_fmt"})
    if (isKnown(stream, key)) facts.push_back(text(stream, key));
  if (isKnown(stream, "sample_aspect_ratio")) {
    facts.push_back(fmt::format("pixels {}, picture {}", text(stream, "sample_aspect_ratio"),
                                shape(text(stream, "display_aspect_ratio"))));
  }
  if (const int degrees = stream.value("rotation", 0); degrees != 0) {
    const char* direction = degrees < 0 ? " clockwise" : " counter-clockwise";
    facts.push_back(fmt::format("turned by {}°{}", std::abs(degrees),
                                std::abs(degrees) == 180 ? "" : direction));
  }
  const Words color = colorFacts(stream);
  facts.insert(facts.end(), color.begin(), color.end());
  return facts;
}

/// The span of a stream, where it is not the container's own.
std::string span(const ordered_json& stream, const ordered_json& document) {
  const auto differs = [&](const char* key) {
    return isKnown(stream, key) &&
           (!isKnown(document, key) ||
            std::abs(stream[key].get<double>() - document[key].get<double>()) > 0.0005);
  };
  Words facts;
  if (differs("start_time")) {
    facts.push_back("starts at " + formatTime(stream["start_time"].get<double>()));
  }
  if (differs("duration")) facts.push_back("lasts " + formatTime(stream["duration"].get<double>()));
  return joined(facts);
}

std::string streamText(const ordered_json& stream, const ordered_json& document) {
  const std::string head = fmt::format("#{:<3}{}", stream["index"].get<int>(),
                                       isKnown(stream, "type") ? text(stream, "type") : "unknown");
  std::string lines = fmt::format("{:<{}}{}\n", head, kStreamColumn, joined(mainFacts(stream)));
  for (const std::string& line : {joined(detailFacts(stream)), span(stream, document)})
    if (!line.empty()) lines += fmt::format("{:{}}{}\n", "", kStreamColumn, line);
  ordered_json tags = stream["tags"];
  tags.erase("language");
  if (tags.value("vendor_id", "") == kNoVendor) tags.erase("vendor_id");
  return lines + tagLines(tags, kStreamColumn);
}

std::string chapterText(const ordered_json& chapter, size_t number) {
  const auto time = [&](const char* key) {
    return isKnown(chapter, key) ? formatTime(chapter[key].get<double>()) : "?";
  };
  ordered_json tags = chapter["tags"];
  const std::string title = text(tags, "title");
  tags.erase("title");
  return fmt::format("{:>{}}  {} - {}  {}\n", number, 4, time("start"), time("end"),
                     aligned(title, kValueColumn)) +
         tagLines(tags, kValueColumn);
}

std::string containerText(const ordered_json& document) {
  std::string lines = printable(document["path"].get_ref<const std::string&>()) + "\n";
  const std::string name = text(document, "format_long_name");
  const std::string format = text(document, "format");
  lines += labelled("format", name.empty() ? format : fmt::format("{} ({})", name, format));
  if (isKnown(document, "size")) {
    lines += labelled("size", formatByteCount(document["size"].get<int64_t>()));
  }
  lines += labelled("duration", isKnown(document, "duration")
                                    ? formatTime(document["duration"].get<double>())
                                    : "unknown");
  if (isKnown(document, "start_time") && document["start_time"].get<double>() != 0) {
    lines += labelled("start", formatTime(document["start_time"].get<double>()));
  }
  if (isKnown(document, "bit_rate")) {
    lines += labelled("bit rate", formatBitRate(document["bit_rate"].get<int64_t>()));
  }
  return lines;
}

}  // namespace

std::string infoText(const ordered_json& document) {
  std::string lines = containerText(document) + "\n";
  for (const auto& stream : document["streams"]) lines += streamText(stream, document);
  if (!document["tags"].empty()) lines += "\ntags\n" + tagLines(document["tags"], 2);
  if (!document["chapters"].empty()) lines += "\nchapters\n";
  size_t number = 0;
  for (const auto& chapter : document["chapters"]) lines += chapterText(chapter, ++number);
  return lines;
}
