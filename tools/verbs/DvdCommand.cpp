#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDIO.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/Log.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/DiscInfo.h>
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Facts.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

struct DvdSettings {
  std::string input;
  bool asJson = false;
  bool files = false;
  bool dump = false;
};

ordered_json trackDocument(const LMDVDTrack& track) {
  return {{"track", track.track},
          {"language", orNull(track.language)},
          {"name", orNull(track.name)},
          {"codec", orNull(track.codec)},
          {"kind", orNull(nameOf(track.kind))}};
}

ordered_json audioTracks(const std::vector<LMDVDTrack>& tracks) {
  auto all = ordered_json::array();
  for (const auto& track : tracks) {
    all.push_back(trackDocument(track));
    all.back().update({{"channels", track.channels},
                       {"surround", track.isSurround},
                       {"sample_rate", track.sample_rate},
                       {"bits", positiveOrNull(track.bits)}});
  }
  return all;
}

ordered_json subtitleTracks(const std::vector<LMDVDTrack>& tracks) {
  auto all = ordered_json::array();
  for (const auto& track : tracks) all.push_back(trackDocument(track));
  return all;
}

ordered_json chapters(const std::vector<ChapterInfo>& chapters) {
  auto all = ordered_json::array();
  for (const ChapterInfo& chapter : chapters)
    all.push_back({{"start", seconds(*chapter.start)}, {"end", seconds(*chapter.end)}});
  return all;
}

/// "16:9"; "" where it is not known.
std::string textOf(const Rational& aspect) {
  return aspect.num > 0 ? fmt::format("{}:{}", aspect.num, aspect.den) : "";
}

/// What a disc states of a title's pictures.
ordered_json stated(const LMDVDVideo& video) {
  return {{"width", positiveOrNull(video.width)},   {"height", positiveOrNull(video.height)},
          {"standard", orNull(video.standard)},     {"aspect", orNull(textOf(video.aspect))},
          {"letterboxed", video.isLetterboxed},     {"allows_letterbox", video.allowsLetterbox},
          {"allows_pan_scan", video.allowsPanScan}, {"film", video.isFilm},
          {"captions", video.hasCaptions}};
}

/// Those of them in words that pictures do not tell themselves.
std::vector<std::string> remarksOn(const LMDVDVideo& video) {
  std::vector<std::string> remarks;
  if (video.isLetterboxed) remarks.emplace_back("letterboxed");
  if (video.allowsLetterbox || video.allowsPanScan)
    remarks.push_back(fmt::format("4:3 screens may show it {}", !video.allowsPanScan ? "with bars"
                                                                : !video.allowsLetterbox
                                                                    ? "cut"
                                                                    : "with bars or cut"));
  if (video.isFilm) remarks.emplace_back("film");
  if (video.hasCaptions) remarks.emplace_back("closed captions");
  return remarks;
}

ordered_json titleDocument(const DiscTitleInfo& title) {
  const auto& pictures = title.pictures;
  return {{"title", title.number},
          {"title_set", title.titleSet},
          {"duration", seconds(title.duration)},
          {"chapters", chapters(title.chapters)},
          {"width", pictures ? ordered_json(pictures->width) : ordered_json(nullptr)},
          {"height", pictures ? ordered_json(pictures->height) : ordered_json(nullptr)},
          {"standard", orNull(title.standard)},
          {"aspect", pictures ? orNull(textOf(pictures->aspect)) : ordered_json(nullptr)},
          {"codec", orNull(title.video.codec)},
          {"stated", stated(title.video)},
          {"angles", title.angles},
          {"audio", audioTracks(title.audio)},
          {"subtitles", subtitleTracks(title.subtitles)},
          {"main", !title.whyMain.empty()},
          {"main_reason", orNull(title.whyMain)},
          {"same_as", orNull(title.sameAs)}};
}

ordered_json discDocument(const DiscInfo& disc) {
  auto titles = ordered_json::array();
  for (const auto& title : disc.titles) titles.push_back(titleDocument(title));
  return {{"volume", disc.volume},
          {"region", disc.region},
          {"path", disc.path},
          {"titles", std::move(titles)}};
}

/// "all regions" or "regions 1, 4", by the mask of those where a disc may not play.
std::string regions(int mask) {
  if ((mask & 0xFF) == 0) return "all regions";
  std::vector<int> allowed;
  for (int region = 1; region <= 8; ++region)
    if (!(mask >> (region - 1) & 1)) allowed.push_back(region);
  if (allowed.empty()) return "no region";
  return fmt::format("region{} {}", allowed.size() > 1 ? "s" : "", fmt::join(allowed, ", "));
}

/// "0 English (en), ac3, 6 channels, 48000 Hz, commentary".
std::string trackText(const LMDVDTrack& track) {
  std::string text = fmt::format("{} ", track.track);
  text += track.name.empty()
              ? "unknown"
              : fmt::format("{} ({})", printable(track.name), printable(track.language));
  if (track.channels > 0) {
    text += fmt::format(", {}, {}, {} Hz", track.codec.empty() ? "unknown" : track.codec,
                        track.channels == 1 ? "mono" : fmt::format("{} channels", track.channels),
                        track.sample_rate);
    if (track.bits > 0) text += fmt::format(", {} bits", track.bits);
    if (track.isSurround) text += ", surround";
  }
  const std::string kind = nameOf(track.kind);
  if (!kind.empty() && track.kind != LMDVDTrackKind::kNormal) text += ", " + kind;
  return text;
}

std::string titleText(const DiscTitleInfo& title) {
  std::string text =
      fmt::format("Title {:<6}{}, {} {}", title.number, timeText(title.duration),
                  title.chapters.size(), title.chapters.size() == 1 ? "chapter" : "chapters");
  const auto add = [&](const std::string& fact) {
    if (!fact.empty()) text += ", " + fact;
  };
  add(title.pictures ? fmt::format("{}x{}", title.pictures->width, title.pictures->height)
                     : "its pictures cannot be read");
  add(title.standard);
  if (title.pictures) add(textOf(title.pictures->aspect));
  if (title.angles > 1) add(fmt::format("{} angles", title.angles));
  add(fmt::format("title set {}", title.titleSet));
  text += "\n";
  const auto line = [&](std::string_view label, const std::string& value) {
    if (!value.empty()) text += fmt::format("  {:<10}{}\n", label, value);
  };
  line("pictures", fmt::format("{}", fmt::join(remarksOn(title.video), ", ")));
  const auto list = [&](const char* label, const std::vector<LMDVDTrack>& tracks) {
    for (const auto& track : tracks) {
      line(label, trackText(track));
      label = "";
    }
  };
  list("sound", title.audio);
  list("subtitles", title.subtitles);
  if (!title.whyMain.empty()) line("main", "the main feature: " + title.whyMain);
  if (title.sameAs) line("same as", fmt::format("title {}", *title.sameAs));
  return text;
}

std::string discText(const DiscInfo& disc) {
  std::string volume = printable(disc.volume);
  std::ranges::replace(volume, '\n', ' ');
  const size_t titles = disc.titles.size();
  std::string text = fmt::format(
      "{}: DVD-Video, {}, {} title {}, {} {}\n", volume, regions(disc.region), disc.titleSets,
      disc.titleSets == 1 ? "set" : "sets", titles, titles == 1 ? "title" : "titles");
  for (const auto& title : disc.titles) text += "\n" + titleText(title);
  return text;
}

void listFiles(LMDVD& disc, bool asJson) {
  auto files = ordered_json::array();
  std::string text;
  const size_t sets = disc.title_sets().size() + disc.missingTitleSets().size();
  for (size_t number = 0; number <= sets; ++number) {
    for (const auto& file : disc.filesOfTitleSet(static_cast<int32_t>(number))) {
      files.push_back({{"name", file->filename()}, {"size", file->filesize()}});
      text += fmt::format("{:>14}  {}\n", file->filesize(), file->filename());
    }
  }
  if (asJson)
    writeDocument({{"volume", disc.volume()}, {"path", disc.path()}, {"files", files}});
  else
    writeStandardOutput(text);
}

void dump(const std::string& path) {
  std::string text;
  setLogSink([&](std::string_view line) { text += printable(line) + "\n"; });
  LMDVDIO::test(path);
  setLogSink([](std::string_view) {});
  writeStandardOutput(text);
}

int finish(const DvdSettings& settings, const std::vector<std::string>& findings) {
  if (findings.empty()) return kDone;
  say(fmt::format("'{}' cannot be read whole: {}", settings.input, fmt::join(findings, "; ")));
  return kDoneInPart;
}

int list(const DvdSettings& settings) {
  if (settings.dump && (settings.files || settings.asJson))
    throw wrongUsage(fmt::format("--dump and {} exclude each other: give one of them",
                                 settings.files ? "--files" : "--json"));
  if (settings.dump || settings.files) {
    const auto disc = openDisc(settings.input);
    if (settings.dump)
      dump(settings.input);
    else
      listFiles(*disc, settings.asJson);
    const std::string damage = damageOf(*disc);
    return finish(settings, damage.empty() ? std::vector<std::string>() : std::vector{damage});
  }
  const DiscInfo disc = readDiscInfo(settings.input);
  if (settings.asJson)
    writeDocument(discDocument(disc));
  else
    writeStandardOutput(discText(disc));
  return finish(settings, disc.findings);
}

}  // namespace

void addDvdVerb(CommandLine& line) {
  const auto settings = std::make_shared<DvdSettings>();
  Verb verb = line.addVerb("dvd", "Tell what is on a DVD-Video disc");
  verb.option("path", settings->input,
              "a folder with VIDEO_TS in it, its VIDEO_TS.IFO, an ISO image or a disc")
      .required()
      .type("PATH");
  verb.flag("--json", settings->asJson, "print one JSON document");
  verb.flag("--files", settings->files, "list the volume's files instead of its titles");
  verb.flag("--dump", settings->dump, "print the disc's structure for finding faults");
  verb.footer(
      "Titles are counted from 1 over the whole disc, their tracks from 0.\n\n"
      "Example:\n"
      "  kestrel dvd MOVIE.iso && kestrel convert MOVIE.iso movie.mkv --title main");
  verb.runs([settings] { return list(*settings); });
}
