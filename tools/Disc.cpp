#include "Disc.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Failure.h"
#include "Text.h"

using namespace kestrel;
namespace fs = std::filesystem;

namespace {

/// Lengths that differ by less than this are the same to people, microseconds.
constexpr int64_t kSameLength = 1000000;

size_t titleCount(const LMDVD& disc) {
  size_t count = 0;
  for (const auto& set : disc.title_sets()) count += set->titles().size();
  return count;
}

bool hasSameCells(const DiscTitle& a, const DiscTitle& b) {
  return a.set == b.set && a.title->cells() == b.title->cells();
}

void markMain(std::vector<DiscTitle>& titles) {
  const auto lengthOf = [](const DiscTitle& title) { return title.title->duration(); };
  const int64_t longest = lengthOf(*std::ranges::max_element(titles, {}, lengthOf));
  const auto isLong = [&](const DiscTitle& title) {
    return !title.sameAs && lengthOf(title) > longest - kSameLength;
  };
  DiscTitle* main = nullptr;
  for (auto& title : titles) {
    const auto chapters = [](const DiscTitle& t) { return t.title->chapters().size(); };
    if (isLong(title) && (!main || chapters(title) > chapters(*main))) main = &title;
  }
  if (!main) return;
  const bool isAlone = std::ranges::count_if(titles, isLong) == 1;
  main->whyMain = isAlone ? "longest" : "longest, most chapters";
}

bool isInFolder(const fs::path& path) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path, error)) {
    const std::string name = lowerCased(entry.path().filename().string());
    if (name == "video_ts" || name == "video_ts.ifo" || name == "video_ts.bup") return true;
  }
  return false;
}

}  // namespace

bool isDisc(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return isInFolder(path);
  if (lowerCased(fs::path(path).extension().string()) != ".iso") return false;
  const auto disc = LMDVD::open(path);
  return disc && titleCount(*disc) > 0;
}

std::shared_ptr<LMDVD> openDisc(const std::string& path) {
  const auto cannotOpen = [&](const std::string& why) {
    return Failure{kFailed, "cannot open '" + path + "': " + why};
  };
  if (access(path.c_str(), R_OK) != 0) throw cannotOpen(std::generic_category().message(errno));
  auto disc = LMDVD::open(path);
  if (!disc) throw cannotOpen("it is no DVD-Video disc, image or folder");
  if (disc->title_sets().empty() && disc->missingTitleSets().empty())
    throw cannotOpen("no DVD-Video is found there, or its VIDEO_TS.IFO is damaged");
  if (titleCount(*disc) == 0) throw cannotOpen("none of the disc's title sets can be read");
  return disc;
}

std::vector<DiscTitle> titlesOf(const LMDVD& disc) {
  std::vector<DiscTitle> titles;
  for (const auto& set : disc.title_sets()) {
    for (const auto& title : set->titles()) {
      DiscTitle own{static_cast<int>(titles.size()) + 1, set, title, std::nullopt, {}};
      const auto same = std::ranges::find_if(
          titles, [&](const DiscTitle& other) { return hasSameCells(other, own); });
      if (same != titles.end()) own.sameAs = same->sameAs.value_or(same->number);
      titles.push_back(std::move(own));
    }
  }
  if (!titles.empty()) markMain(titles);
  return titles;
}

DiscTitle chooseTitle(const LMDVD& disc, const std::string& wanted) {
  const auto titles = titlesOf(disc);
  if (wanted == "main") {
    const auto main =
        std::ranges::find_if(titles, [](const DiscTitle& title) { return !title.whyMain.empty(); });
    if (main != titles.end()) return *main;
  }
  size_t number = 0;
  const char* const end = wanted.data() + wanted.size();
  const auto [last, error] = std::from_chars(wanted.data(), end, number);
  if (error != std::errc{} || last != end)
    throw wrongUsage(fmt::format("--title: '{}' is neither a number nor 'main'", wanted));
  if (number < 1 || number > titles.size())
    throw wrongUsage(fmt::format("there is no title {}: the disc has {}", wanted, titles.size()));
  return titles[number - 1];
}
