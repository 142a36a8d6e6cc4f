#include <kestrel/convert/Disc.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "support/Words.h"

namespace kestrel {
namespace fs = std::filesystem;

namespace {

/// Lengths that differ by less than this are the same to people, microseconds.
constexpr int64_t kSameLength = 1000000;

bool hasTitles(const LMDVD& disc) {
  return std::ranges::any_of(disc.numberedTitles(),
                             [](const auto& numbered) { return numbered.title != nullptr; });
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
  const auto chaptersOf = [](const DiscTitle& title) { return title.title->chapters().size(); };
  DiscTitle* main = nullptr;
  for (auto& title : titles)
    if (isLong(title) && (!main || chaptersOf(title) > chaptersOf(*main))) main = &title;
  if (!main) return;
  const auto isLikeMain = [&](const DiscTitle& title) {
    return isLong(title) && chaptersOf(title) == chaptersOf(*main);
  };
  const auto alike = std::ranges::count_if(titles, isLikeMain);
  if (alike > 1)
    main->whyMain = fmt::format("the first of {} that are longest", alike);
  else if (std::ranges::count_if(titles, isLong) > 1)
    main->whyMain = "longest, most chapters";
  else
    main->whyMain = "longest";
}

bool isInFolder(const fs::path& path) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path, error)) {
    const std::string name = lowerCased(entry.path().filename().string());
    if (name == "video_ts" || name == "video_ts.ifo" || name == "video_ts.bup") return true;
  }
  return false;
}

/// Whether a file is an image of a disc, by the name that its seventeenth sector bears.
bool isImage(const fs::path& path) {
  constexpr std::streamoff kPlace = 16 * 2048 + 1;
  std::array<char, 5> name{};
  std::ifstream file(path, std::ios::binary);
  file.seekg(kPlace);
  if (!file.read(name.data(), name.size())) return false;
  const std::string_view text(name.data(), name.size());
  return text == "CD001" || text == "BEA01";
}

}  // namespace

bool isDisc(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return isInFolder(path);
  if (LMDVD::isNameOfInformation(path)) return fs::is_regular_file(path, error);
  const bool isReadable = fs::is_regular_file(path, error) || fs::is_block_file(path, error);
  if (!isReadable || !isImage(path)) return false;
  const auto disc = LMDVD::open(path);
  return disc && hasTitles(*disc);
}

std::shared_ptr<LMDVD> openDisc(const std::string& path) {
  const auto cannotOpen = [&](const std::string& why) {
    return Failure::input(path, "cannot open '" + path + "': " + why);
  };
  if (access(path.c_str(), R_OK) != 0) throw cannotOpen(std::generic_category().message(errno));
  auto disc = LMDVD::open(path);
  if (!disc) throw cannotOpen("it is no DVD-Video disc, image or folder");
  if (disc->title_sets().empty() && disc->missingTitleSets().empty())
    throw cannotOpen("no DVD-Video is found there, or its VIDEO_TS.IFO is damaged");
  if (!hasTitles(*disc)) throw cannotOpen("none of the disc's title sets can be read");
  return disc;
}

std::string damageOf(const LMDVD& disc) {
  std::vector<std::string> findings;
  if (const auto& sets = disc.missingTitleSets(); !sets.empty()) {
    std::vector<int> lost;
    for (size_t i = 0; i < disc.numberedTitles().size(); ++i)
      if (!disc.numberedTitles()[i].set) lost.push_back(static_cast<int>(i) + 1);
    findings.push_back(nounAndNumbers("title set", sets) + " cannot be read");
    if (!lost.empty()) findings.back() += " (" + nounAndNumbers("title", lost) + ")";
  }
  if (!disc.hasTitleTable())
    findings.push_back("its table of titles cannot be read, so titles may have other numbers");
  return fmt::format("{}", fmt::join(findings, "; "));
}

std::vector<DiscTitle> titlesOf(const LMDVD& disc) {
  std::vector<DiscTitle> titles;
  int number = 0;
  for (const auto& numbered : disc.numberedTitles()) {
    ++number;
    if (!numbered.title) continue;
    DiscTitle own{number, numbered.set, numbered.title, std::nullopt, {}};
    const auto same = std::ranges::find_if(
        titles, [&](const DiscTitle& other) { return hasSameCells(other, own); });
    if (same != titles.end()) own.sameAs = same->sameAs.value_or(same->number);
    titles.push_back(std::move(own));
  }
  if (!titles.empty()) markMain(titles);
  return titles;
}

DiscTitle chooseTitle(const LMDVD& disc, int wanted) {
  const auto titles = titlesOf(disc);
  if (wanted == kMainTitle) {
    const auto main =
        std::ranges::find_if(titles, [](const DiscTitle& title) { return !title.whyMain.empty(); });
    if (main != titles.end()) return *main;
  }
  const auto count = static_cast<int>(disc.numberedTitles().size());
  if (wanted < 1 || wanted > count)
    throw Failure::settings(fmt::format("there is no title {}: the disc has {}", wanted, count),
                            "title");
  const auto chosen = std::ranges::find(titles, wanted, &DiscTitle::number);
  if (chosen != titles.end()) return *chosen;
  const auto& lost = disc.numberedTitles()[wanted - 1];
  throw Failure::input(
      disc.path(),
      fmt::format("title {} cannot be read: {}", wanted,
                  lost.set ? "its program chain is empty or damaged"
                           : fmt::format("title set {}, which holds it, is lost", lost.title_set)));
}

}  // namespace kestrel
