#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDIO.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include <kestrel/convert/Disc.h>
#include "tools/cli/Text.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Say.h"
#include "tools/terminal/StandardOutput.h"
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

double seconds(int64_t time) { return std::round(lm_ff_time_to_double(time) * 1e6) / 1e6; }

ordered_json orNull(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json tracks(const std::vector<LMDVDTrack>& tracks) {
  auto all = ordered_json::array();
  for (const auto& track : tracks)
    all.push_back({{"track", track.track},
                   {"language", orNull(track.language)},
                   {"name", orNull(track.name)}});
  return all;
}

ordered_json chapters(const LMDVDTitle& title) {
  auto all = ordered_json::array();
  const auto times = title.chapterTimes();
  for (size_t i = 0; i < times.size(); ++i) {
    const int64_t end = i + 1 < times.size() ? times[i + 1] : title.duration();
    all.push_back({{"start", seconds(times[i])}, {"end", seconds(end)}});
  }
  return all;
}

/// The television standard that pictures are made for, by their height and rate.
ordered_json standardOf(const LMDVDPictureFacts& facts) {
  const bool isPal = facts.framerate.num == 25 && facts.framerate.den == 1;
  if (isPal && (facts.height == 576 || facts.height == 288)) return "PAL";
  if (!isPal && (facts.height == 480 || facts.height == 240)) return "NTSC";
  return nullptr;
}

ordered_json titleDocument(const std::shared_ptr<LMDVD>& disc, const DiscTitle& title) {
  LMDVDSource source;
  source.setDvd(disc);
  source.setTitle_set(title.set);
  source.setTitle(title.title);
  const auto facts = source.pictureFacts();
  const auto known = [&](auto value) {
    return facts ? ordered_json(value(*facts)) : ordered_json(nullptr);
  };
  return {{"title", title.number},
          {"title_set", title.set->title_set()},
          {"duration", seconds(title.title->duration())},
          {"chapters", chapters(*title.title)},
          {"width", known([](const auto& f) { return f.width; })},
          {"height", known([](const auto& f) { return f.height; })},
          {"standard", known(standardOf)},
          {"aspect", known([](const auto& f) {
             return f.aspect.num > 0
                        ? ordered_json(fmt::format("{}:{}", f.aspect.num, f.aspect.den))
                        : ordered_json(nullptr);
           })},
          {"audio", tracks(title.title->audioTracks())},
          {"subtitles", tracks(title.title->subtitleTracks())},
          {"main", !title.whyMain.empty()},
          {"main_reason", orNull(title.whyMain)},
          {"same_as", title.sameAs ? ordered_json(*title.sameAs) : ordered_json(nullptr)}};
}

ordered_json discDocument(const std::shared_ptr<LMDVD>& disc) {
  auto titles = ordered_json::array();
  for (const auto& title : titlesOf(*disc)) titles.push_back(titleDocument(disc, title));
  return {{"volume", disc->volume()},
          {"region", disc->region()},
          {"path", disc->path()},
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

/// "0 English, 1 French".
std::string trackList(const ordered_json& tracks) {
  std::vector<std::string> words;
  for (const auto& track : tracks) {
    const auto& name = track["name"];
    const auto& code = track["language"];
    words.push_back(fmt::format("{} {}", track["track"].get<int>(),
                                name.is_null()
                                    ? "unknown"
                                    : fmt::format("{} ({})", printable(name.get<std::string>()),
                                                  printable(code.get<std::string>()))));
  }
  return fmt::format("{}", fmt::join(words, ", "));
}

std::string titleText(const ordered_json& title) {
  std::string text =
      fmt::format("Title {:<6}{}, {} {}", title["title"].get<int>(),
                  formatTime(title["duration"].get<double>()), title["chapters"].size(),
                  title["chapters"].size() == 1 ? "chapter" : "chapters");
  const auto add = [&](const std::string& fact) { text += ", " + fact; };
  if (!title["width"].is_null())
    add(fmt::format("{}x{}", title["width"].get<int>(), title["height"].get<int>()));
  else
    add("its pictures cannot be read");
  for (const char* key : {"standard", "aspect"})
    if (!title[key].is_null()) add(title[key].get<std::string>());
  add(fmt::format("title set {}", title["title_set"].get<int>()));
  text += "\n";
  const auto line = [&](std::string_view label, const std::string& value) {
    if (!value.empty()) text += fmt::format("  {:<10}{}\n", label, value);
  };
  line("sound", trackList(title["audio"]));
  line("subtitles", trackList(title["subtitles"]));
  if (title["main"].get<bool>())
    line("main", fmt::format("the main feature: {}", title["main_reason"].get<std::string>()));
  if (!title["same_as"].is_null())
    line("same as", fmt::format("title {}", title["same_as"].get<int>()));
  return text;
}

std::string discText(const ordered_json& disc, const LMDVD& dvd) {
  std::string volume = printable(disc["volume"].get<std::string>());
  std::ranges::replace(volume, '\n', ' ');
  const size_t sets = dvd.title_sets().size();
  const size_t titles = disc["titles"].size();
  std::string text = fmt::format(
      "{}: DVD-Video, {}, {} title {}, {} {}\n", volume, regions(disc["region"].get<int>()), sets,
      sets == 1 ? "set" : "sets", titles, titles == 1 ? "title" : "titles");
  for (const auto& title : disc["titles"]) text += "\n" + titleText(title);
  return text;
}

void writeDocument(const ordered_json& document) {
  writeStandardOutput(document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
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

/// What keeps titles from being read whole, and which ones.
std::map<std::string, std::vector<int>> problemsOf(const std::shared_ptr<LMDVD>& disc) {
  std::map<std::string, std::vector<int>> problems;
  for (const auto& title : titlesOf(*disc))
    if (const Error error = LMDVDTitleSource(disc, title.set, title.title).problem())
      problems[error.message].push_back(title.number);
  return problems;
}

int list(const DvdSettings& settings) {
  if (settings.dump && (settings.files || settings.asJson))
    throw wrongUsage(fmt::format("--dump and {} exclude each other: give one of them",
                                 settings.files ? "--files" : "--json"));
  const auto disc = openDisc(settings.input);
  if (settings.dump) {
    dump(settings.input);
  } else if (settings.files) {
    listFiles(*disc, settings.asJson);
  } else {
    const auto document = discDocument(disc);
    if (settings.asJson)
      writeDocument(document);
    else
      writeStandardOutput(discText(document, *disc));
  }
  std::vector<std::string> findings;
  if (const std::string damage = damageOf(*disc); !damage.empty()) findings.push_back(damage);
  if (!settings.dump && !settings.files)
    for (const auto& [problem, numbers] : problemsOf(disc))
      findings.push_back(nounAndNumbers("title", numbers) + ": " + problem);
  if (findings.empty()) return kDone;
  say(fmt::format("'{}' cannot be read whole: {}", settings.input, fmt::join(findings, "; ")));
  return kDoneInPart;
}

}  // namespace

void addDvdVerb(CommandLine& line) {
  const auto settings = std::make_shared<DvdSettings>();
  Verb verb = line.addVerb("dvd", "Tell what is on a DVD-Video disc");
  verb.option("path", settings->input, "a folder with VIDEO_TS in it, an ISO image or a disc")
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
