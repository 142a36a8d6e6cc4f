#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDFile.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <mutex>
#include <regex>
#include <system_error>
#include <utility>

#include "dvd/TitleSetReader.h"
#include "dvd/VolumeReader.h"

namespace kestrel {

namespace fs = std::filesystem;

namespace {

/// No disc has more title sets; a manager that claims more is damaged.
constexpr int kMostTitleSets = 99;

/// The folder or file by its name, whatever way led to it.
std::string displayName(const fs::path& path) {
  std::error_code error;
  fs::path full = fs::weakly_canonical(path, error);
  if (error) full = path.lexically_normal();
  if (!full.has_filename()) full = full.parent_path();
  return full.has_filename() ? full.filename().string() : full.string();
}

/// Where the volume is that a path names.
std::string volumePath(const std::string& path) {
  std::error_code error;
  if (!LMDVD::isNameOfInformation(path) || !fs::is_regular_file(path, error)) return path;
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

bool isVideoFolder(const fs::path& path) {
  std::error_code error;
  if (!fs::is_directory(path, error)) return false;
  std::string name = displayName(path);
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name == "video_ts";
}

}  // namespace

LMDVD::LMDVD() : internal_(std::make_shared<LMDVDInternal>()) {}

LMDVD::~LMDVD() { const DVDReaderPtr closes(dvd_reader()); }

bool LMDVD::isNameOfInformation(const std::string& path) {
  static const std::regex kNames(R"((video_ts|vts_\d\d_0)\.(ifo|bup))",
                                 std::regex::icase | std::regex::optimize);
  return std::regex_match(fs::path(path).filename().string(), kNames);
}

std::shared_ptr<LMDVD> LMDVD::open(const std::string& path) {
  DVDReaderPtr reader = openVolume(volumePath(path));
  if (!reader) return nullptr;
  auto dvd = std::make_shared<LMDVD>();
  dvd->internal_->setDvd(reader.release());
  dvd->path_ = path;
  dvd->readName();
  dvd->readTitleSets();
  return dvd;
}

void LMDVD::readName() {
  volume_ = volumeIdentifier(dvd_reader());
  if (!volume_.empty()) return;
  std::error_code error;
  fs::path named(volumePath(path_));
  if (isVideoFolder(named)) named = fs::weakly_canonical(named, error).parent_path();
  volume_ = displayName(named);
}

void LMDVD::readTitleSets() {
  int count = 0;
  std::vector<TitleEntry> table;
  {
    const IfoPtr manager = openManager(dvd_reader());
    if (!manager || !manager->vmgi_mat) return;
    count = manager->vmgi_mat->vmg_nr_of_title_sets;
    region_ = static_cast<int32_t>(manager->vmgi_mat->vmg_category >> 16 & 0xFF);
    table = readTitleTable(dvd_reader(), manager->vmgi_mat->tt_srpt);
  }
  for (const TitleEntry& entry : table)
    numberedTitles_.push_back({entry.title_set, nullptr, nullptr});
  log(fmt::format("title_sets {} Region 0x{:02x}", count, region_ ^ 0xFF));
  for (int number = 1; number <= std::min(count, kMostTitleSets); ++number) {
    const IfoPtr set = openTitleSet(dvd_reader(), number);
    if (!set || !set->vtsi_mat || !set->vts_pgcit || !set->vts_c_adt) {
      missingTitleSets_.push_back(number);
      continue;
    }
    title_sets_.push_back(readTitleSet(*set, number));
    for (size_t i = 0; i < table.size(); ++i)
      if (table[i].title_set == number)
        numberedTitles_[i] = {number, title_sets_.back(),
                              numberedTitle(*set, *title_sets_.back(), table[i].number)};
  }
  hasTitleTable_ = std::ranges::any_of(numberedTitles_, [](const LMDVDNumberedTitle& numbered) {
    return numbered.title != nullptr;
  });
  if (!hasTitleTable_) numberInOrder();
}

/// What is left where the disc's own numbers are not known.
void LMDVD::numberInOrder() {
  numberedTitles_.clear();
  for (const auto& set : title_sets_)
    for (const auto& title : set->titles())
      numberedTitles_.push_back({set->title_set(), set, title});
}

std::vector<std::shared_ptr<LMDVDFile>> LMDVD::dvdFiles() {
  std::vector<std::shared_ptr<LMDVDFile>> files;
  const auto count = static_cast<int32_t>(title_sets_.size() + missingTitleSets_.size());
  for (int32_t number = 0; number <= count; ++number)
    std::ranges::move(filesOfTitleSet(number), std::back_inserter(files));
  return files;
}

std::vector<std::shared_ptr<LMDVDFile>> LMDVD::filesOfTitleSet(int32_t number) {
  std::vector<std::shared_ptr<LMDVDFile>> files;
  if (!dvd_reader()) return files;
  const std::lock_guard guard(internal_->lock());
  for (int32_t domain = DVD_READ_INFO_FILE; domain <= DVD_READ_TITLE_VOBS; ++domain) {
    if (number == 0 && domain == DVD_READ_TITLE_VOBS) continue;  // the manager has no titles
    dvd_stat_t status{};
    if (DVDFileStat(dvd_reader(), number, static_cast<dvd_read_domain_t>(domain), &status) != 0)
      continue;
    for (int32_t part = 0; part < status.nr_parts; ++part) {
      auto file = std::make_shared<LMDVDFile>();
      file->setDvd(shared_from_this());
      file->setDvd_read_domain(domain);
      file->setTitle_num(number);
      file->setFile_part(part);
      file->setFile_size(status.parts_size[part]);
      files.push_back(std::move(file));
    }
  }
  return files;
}

std::vector<std::shared_ptr<LMDVDSource>> LMDVD::titleSources() {
  std::vector<std::shared_ptr<LMDVDSource>> sources;
  for (const auto& set : title_sets_) {
    for (const auto& title : set->titles()) {
      auto whole = std::make_shared<LMDVDSource>();
      whole->setDvd(shared_from_this());
      whole->setTitle_set(set);
      whole->setTitle(title);
      auto runs = whole->dvdMediaSources();
      if (static_cast<int32_t>(runs.size()) < dvdTitleSplitVobCount())
        sources.push_back(std::move(whole));
      else
        std::ranges::move(runs, std::back_inserter(sources));
    }
  }
  return sources;
}

}  // namespace kestrel
