#include "convert/job/JobFiles.h"

#include <algorithm>
#include <fstream>
#include <system_error>

namespace kestrel {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

bool isNumber(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

/// As `uniqueName` makes them.
bool isUniqueName(std::string_view name) {
  const size_t first = name.find('-');
  const size_t second = name.find('-', first + 1);
  return first != std::string_view::npos && second != std::string_view::npos &&
         isNumber(name.substr(0, first)) && isNumber(name.substr(first + 1, second - first - 1)) &&
         name.substr(second + 1).find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

json readDocument(const std::string& path) {
  std::error_code failed;
  if (!fs::is_regular_file(path, failed)) return {};
  std::ifstream file(path);
  return file ? json::parse(file, nullptr, false) : json();
}

std::vector<fs::directory_entry> entriesOf(const std::string& path) {
  std::error_code failed;
  std::vector<fs::directory_entry> entries;
  for (const auto& entry : fs::directory_iterator(path, failed)) entries.push_back(entry);
  return entries;
}

bool isJobPlan(const std::string& path) {
  const json document = readDocument(path);
  return document.is_object() && document.contains("format") && document.contains("id") &&
         document.contains("parts");
}

bool isTargetNote(const json& document) {
  return document.is_object() && document.contains("file") && document.contains("size");
}

bool isLeftOver(const fs::directory_entry& entry) {
  const std::string name = entry.path().filename().string();
  if (name == "whole") return isTargetNote(readDocument(entry.path().string()));
  if (std::ranges::count(kJobFolders, name) == 0 || !fs::is_directory(entry.symlink_status()))
    return false;
  return std::ranges::all_of(entriesOf(entry.path().string()), [&](const auto& inside) {
    return name == "partial" && isUniqueName(inside.path().filename().string());
  });
}

bool isJobNote(std::string_view name) {
  constexpr std::string_view kLog = ".log";
  constexpr std::string_view kWork = "work-";
  if (name == "assembled" || name == "slurm" || name == "assemble.log") return true;
  return name.starts_with(kWork) && name.ends_with(kLog) &&
         isNumber(name.substr(kWork.size(), name.size() - kWork.size() - kLog.size()));
}

}  // namespace kestrel
