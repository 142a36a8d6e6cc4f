#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

// What of a folder is a job's: nothing else in it is ever touched.

/// A job's own folders.
inline constexpr const char* kJobFolders[] = {"parts", "claims", "problems", "partial"};

/// What a file holds; null or discarded of one that is gone or holds no JSON.
nlohmann::json readDocument(const std::string& path);

/// None of a folder that is not there.
std::vector<std::filesystem::directory_entry> entriesOf(const std::string& path);

bool isJobPlan(const std::string& path);

/// Whether this is the note of a target that is whole.
bool isTargetNote(const nlohmann::json& document);

/// Whether an entry of a folder without a plan is what a job leaves that was ended while it was
/// begun or removed: empty folders, the plan before it had its name, the note of the target.
bool isLeftOver(const std::filesystem::directory_entry& entry);

/// Whether a file of this name is what a job keeps beside its plan, its folders and the note of
/// its target.
bool isJobNote(std::string_view name);

}  // namespace kestrel
