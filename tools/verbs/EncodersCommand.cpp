#include <kestrel/convert/Encoders.h>

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

nlohmann::ordered_json documentOf(const EncoderInfo& encoder) {
  const bool isVideo = encoder.kind == StreamInfo::Kind::kVideo;
  nlohmann::ordered_json object{
      {"name", encoder.name},           {"long_name", encoder.longName},
      {"codec", encoder.codec},         {"kind", isVideo ? "video" : "audio"},
      {"hardware", encoder.isHardware}, {"usable", encoder.isUsable()}};
  if (!encoder.isUsable()) object["trouble"] = encoder.trouble;
  object["bit_rate"] = encoder.takesBitrate;
  if (encoder.quality)
    object["quality"] = {{"option", encoder.quality->option},
                         {"best", encoder.quality->best},
                         {"worst", encoder.quality->worst},
                         {"usual", encoder.quality->usual}};
  if (!encoder.presets.empty()) {
    object["presets"] = encoder.presets;
    object["usual_preset"] = encoder.usualPreset;
  }
  if (isVideo) {
    object["depths"] = encoder.depths;
    object["pixel_formats"] = encoder.pixelFormats;
  } else {
    object["sample_rates"] = encoder.sampleRates;
    object["sample_formats"] = encoder.sampleFormats;
  }
  return object;
}

/// "crf 0 to 51, usually 23; presets ultrafast to placebo; 8, 10 bits", or why it does not work.
std::string lineOf(const EncoderInfo& encoder) {
  if (!encoder.isUsable()) return "does not work here: " + encoder.trouble;
  std::vector<std::string> parts;
  if (encoder.quality)
    parts.push_back(fmt::format("{} {} to {}, usually {}", encoder.quality->option,
                                encoder.quality->best, encoder.quality->worst,
                                encoder.quality->usual));
  else if (encoder.takesBitrate)
    parts.emplace_back("bit rate");
  if (!encoder.presets.empty())
    parts.push_back(fmt::format("presets {} to {}, usually {}", encoder.presets.front(),
                                encoder.presets.back(), encoder.usualPreset));
  if (!encoder.depths.empty())
    parts.push_back(fmt::format("{} bits", fmt::join(encoder.depths, ", ")));
  return fmt::format("{}", fmt::join(parts, "; "));
}

int listEncoders(const std::string& codec, bool asJson, bool all) {
  auto encoders = readEncoders(codec);
  if (!all && codec.empty())
    std::erase_if(encoders, [](const EncoderInfo& encoder) { return !encoder.isUsable(); });
  if (asJson) {
    nlohmann::ordered_json document;
    auto& list = document["encoders"] = nlohmann::ordered_json::array();
    for (const EncoderInfo& encoder : encoders) list.push_back(documentOf(encoder));
    writeDocument(document);
    return kDone;
  }
  std::vector<std::vector<std::string>> rows;
  for (const EncoderInfo& encoder : encoders)
    rows.push_back({encoder.codec, encoder.name, lineOf(encoder)});
  writeStandardOutput(tableText(rows));
  return kDone;
}

struct Typed {
  std::string codec;
  bool json = false;
  bool all = false;
};

}  // namespace

void addEncodersVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("encoders", "List the encoders that work on this machine");
  verb.option("codec", typed->codec,
              "those of one codec, or one by its name, be they usable or not")
      .type("CODEC|ENCODER")
      .asks("encoders");
  verb.flag("--json", typed->json, "print one JSON document");
  verb.flag("--all", typed->all, "list those that do not work here, too, and why");
  verb.footer(
      "Each is tried by encoding a picture or a moment of silence. The first of a codec is the "
      "one\n"
      "that 'kestrel convert' chooses.\n\n"
      "Example:\n  kestrel encoders h264");
  verb.runs([typed] { return listEncoders(typed->codec, typed->json, typed->all); });
}
