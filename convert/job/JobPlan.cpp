#include "convert/job/JobPlan.h"

#include <kestrel/Version.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "convert/job/JobFolder.h"
#include "convert/job/Sha256.h"

namespace kestrel {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kFormat = 1;

// Of a file so many pieces count, each so long.
constexpr int64_t kPieces = 64;
constexpr int64_t kPieceSize = 65536;

json jsonOf(const std::optional<int64_t>& number) { return number ? json(*number) : json(); }

std::optional<int64_t> optionalIn(const json& number) {
  return number.is_null() ? std::nullopt : std::optional(number.get<int64_t>());
}

json jsonOf(const PictureStretch& stretch) {
  return {{"from", stretch.from},           {"place", stretch.place},
          {"until", jsonOf(stretch.until)}, {"until_place", jsonOf(stretch.untilPlace)},
          {"anchor", stretch.anchor},       {"anchor_place", stretch.anchorPlace},
          {"context", stretch.context}};
}

PictureStretch stretchIn(const json& document) {
  return {.from = document.at("from"),
          .place = document.at("place"),
          .until = optionalIn(document.at("until")),
          .untilPlace = optionalIn(document.at("until_place")),
          .anchor = document.at("anchor"),
          .anchorPlace = document.at("anchor_place"),
          .context = document.at("context")};
}

json jsonOf(const MeasuredInput& measured) {
  json document;
  if (const auto& scanning = measured.scanning) {
    document["scanning"] = {{"scan", static_cast<int>(scanning->scan)},
                            {"marked", scanning->isMarked},
                            {"pictures", scanning->pictures},
                            {"combed", scanning->combed}};
    if (scanning->topFieldFirst) document["scanning"]["top_first"] = *scanning->topFieldFirst;
  }
  if (const auto& area = measured.picture)
    document["picture"] = {area->x, area->y, area->width, area->height};
  return document;
}

MeasuredInput measuredIn(const json& document) {
  MeasuredInput measured;
  if (document.contains("scanning")) {
    const json& scanning = document["scanning"];
    measured.scanning = {.scan = static_cast<Scan>(scanning.at("scan").get<int>()),
                         .isMarked = scanning.at("marked"),
                         .pictures = scanning.at("pictures"),
                         .combed = scanning.at("combed")};
    if (scanning.contains("top_first")) measured.scanning->topFieldFirst = scanning["top_first"];
  }
  if (document.contains("picture")) {
    const json& area = document["picture"];
    measured.picture = {area.at(0), area.at(1), area.at(2), area.at(3)};
  }
  return measured;
}

json documentOf(const JobPlan& plan) {
  json document{
      {"format", kFormat},         {"input", plan.input},       {"output", plan.output},
      {"replaces", plan.replaces}, {"stretch", plan.stretch},   {"threads", plan.threads},
      {"files", plan.files},       {"versions", plan.versions}, {"measured", jsonOf(plan.measured)},
      {"encoding", plan.encoding}, {"start", plan.start}};
  auto& options = document["options"] = json::array();
  for (const ConversionOption& option : plan.options)
    options.push_back({option.name, option.value});
  auto& parts = document["parts"] = json::array();
  for (const PlannedPart& part : plan.parts) {
    json own{{"name", part.name}, {"start", part.start}, {"end", part.end}};
    if (part.stretch) own["pictures"] = jsonOf(*part.stretch);
    parts.push_back(own);
  }
  return document;
}

std::string idOf(const json& document) {
  const std::string text = document.dump();
  Sha256 sum;
  sum.add(text.data(), text.size());
  return sum.text();
}

JobPlan planIn(const json& document) {
  JobPlan plan{.id = document.at("id"),
               .input = document.at("input"),
               .output = document.at("output"),
               .replaces = document.at("replaces"),
               .stretch = document.at("stretch"),
               .threads = document.at("threads"),
               .files = document.at("files"),
               .versions = document.at("versions"),
               .measured = measuredIn(document.at("measured")),
               .encoding = document.at("encoding"),
               .start = document.at("start")};
  for (const json& option : document.at("options"))
    plan.options.push_back({option.at(0), option.at(1)});
  for (const json& part : document.at("parts")) {
    PlannedPart own{.name = part.at("name"), .start = part.at("start"), .end = part.at("end")};
    if (part.contains("pictures")) own.stretch = stretchIn(part["pictures"]);
    plan.parts.push_back(std::move(own));
  }
  return plan;
}

}  // namespace

const PlannedPart* JobPlan::part(const std::string& name) const {
  const auto found = std::ranges::find(parts, name, &PlannedPart::name);
  return found == parts.end() ? nullptr : &*found;
}

ConversionSettings settingsOf(const JobPlan& plan) {
  ConversionSettings settings;
  applyOptions(plan.options, settings);
  settings.input = plan.input;
  settings.output = plan.output;
  settings.replaces = plan.replaces;
  if (settings.video.value_or(StreamAction::kEncode) == StreamAction::kEncode)
    settings.videoOptions.try_emplace("threads", std::to_string(plan.threads));
  return settings;
}

json encodingOf(const ConversionPlan& plan) {
  json document{{"container", plan.formatName},
                {"muxer_options", plan.muxerOptions},
                {"start", plan.start},
                {"end", jsonOf(plan.end)}};
  auto& streams = document["streams"] = json::array();
  for (const PlannedStream& stream : plan.streams) {
    json own{{"kind", static_cast<int>(stream.kind)},
             {"action", static_cast<int>(stream.action)},
             {"sources", stream.sources}};
    if (stream.kind == StreamInfo::Kind::kAudio && stream.action == StreamAction::kEncode)
      own["sound"] = {{"encoder", stream.sound.encoder}, {"codec", stream.sound.codec},
                      {"rate", stream.sound.sampleRate}, {"layout", stream.sound.channelLayout},
                      {"bits", stream.sound.bits},       {"bit_rate", stream.sound.bitrate},
                      {"options", stream.sound.options}};
    streams.push_back(own);
  }
  const PlannedStream* const pictures = plan.pictures();
  if (!pictures || pictures->action != StreamAction::kEncode) return document;
  document["pictures"] = {
      {"encoder", plan.videoEncoder},
      {"options", plan.videoOptions},
      {"pixel_format", plan.pixelFormat},
      {"width", plan.format.width},
      {"height", plan.format.height},
      {"aspect", plan.format.aspect},
      {"rate", {plan.format.framerate, plan.format.frameTime}},
      {"keeps_times", plan.keepsTimes},
      {"deinterlacing", static_cast<int>(plan.treatment.deinterlacing)},
      {"separates_fields", plan.treatment.separatesFields},
      {"denoising", static_cast<int>(plan.treatment.denoising)},
      {"color", {plan.color.primaries, plan.color.transfer, plan.color.matrix, plan.color.range}}};
  return document;
}

json fingerprintOf(const std::string& path) {
  std::error_code failed;
  const auto size = static_cast<int64_t>(fs::file_size(path, failed));
  std::ifstream file(path, std::ios::binary);
  Sha256 sum;
  std::string piece(kPieceSize, '\0');
  const int64_t last = std::max<int64_t>(size - kPieceSize, 0);
  for (int64_t i = 0; i < kPieces && !failed && file; ++i) {
    file.seekg(last / (kPieces - 1) * i + (i == kPieces - 1 ? last % (kPieces - 1) : 0));
    file.read(piece.data(), std::min(size, kPieceSize));
    sum.add(piece.data(), static_cast<size_t>(file.gcount()));
  }
  if (failed || !file) throw Failure::input(path, fmt::format("cannot read '{}'", path));
  return {{"size", size}, {"sha256", sum.text()}};
}

json ownVersions() {
  json versions{{"kestrel", version()}};
  for (const LibraryVersion& library : libraryVersions()) versions[library.name] = library.version;
  return versions;
}

JobPlan readJobPlan(const std::string& folder) {
  const std::string path = JobFolder(folder).planPath();
  std::ifstream file(path);
  if (!file) throw Failure::input(folder, fmt::format("there is no job in '{}'", folder));
  json document = json::parse(file, nullptr, false);
  try {
    if (document.is_discarded() || document.at("format") != kFormat)
      throw Failure::input(path, fmt::format("'{}' is no plan that this version knows", path));
    JobPlan plan = planIn(document);
    document.erase("id");
    if (idOf(document) != plan.id)
      throw Failure::input(path, fmt::format("'{}' is not as it was planned", path));
    return plan;
  } catch (const json::exception&) {
    throw Failure::input(path, fmt::format("'{}' is damaged", path));
  }
}

void writeJobPlan(const std::string& folder, const JobPlan& plan) {
  json document = documentOf(plan);
  document["id"] = idOf(document);
  JobFolder(folder).writeOnce("plan.json", document.dump(2) + "\n");
}

void requireSame(const JobPlan& plan) {
  if (const json own = ownVersions(); own != plan.versions)
    throw Failure::settings(fmt::format("the job was planned by another version: {} in place of {}",
                                        plan.versions.dump(), own.dump()),
                            "version");
  for (const auto& [path, fingerprint] : plan.files.items())
    if (fingerprintOf(path) != fingerprint)
      throw Failure::input(path, fmt::format("'{}' is not the file that was planned", path));
}

void requireSameEncoding(const JobPlan& plan, const ConversionPlan& conversion) {
  if (const json own = encodingOf(conversion); own != plan.encoding)
    throw Failure::settings(fmt::format("'{}' would not be converted as it was planned: {}",
                                        plan.input, json::diff(plan.encoding, own).dump()),
                            "options");
}

}  // namespace kestrel
